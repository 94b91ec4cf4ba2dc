// SPDX-License-Identifier: MIT
// TXUpdateAuthorize: started by pkexec, so that the password dialog names this program. Says "authorized",
// reads one command from standard input, its words separated by NUL, and becomes it. Without a command it
// ends.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char **) {
    if (argc != 1) {
        std::fputs(
            "usage: TXUpdateAuthorize\nRuns the command that it reads, NUL-separated, from standard input.\n",
            stderr);
        return 64;
    }
    constexpr char answer[] = "authorized\n";
    if (write(STDOUT_FILENO, answer, sizeof answer - 1) < 0)
        return 74;
    std::string command;
    char buffer[4096];
    constexpr size_t longestCommand = 1 << 20;
    for (ssize_t n = 0; (n = read(STDIN_FILENO, buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno != EINTR)
            return 74;
        if (n > 0)
            command.append(buffer, static_cast<size_t>(n));
        if (command.size() > longestCommand)
            return 64;
    }
    if (command.empty() || command.back() != '\0' || command.front() != '/')
        return 64;
    std::vector<char *> words;
    for (size_t i = 0; i < command.size(); i += std::strlen(&command[i]) + 1)
        words.push_back(&command[i]);
    words.push_back(nullptr);
    // The caller sees the end of this descriptor when the command has replaced this program.
    const int report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    execv(words.front(), words.data());
    const std::string reason = std::string("failed: ") + std::strerror(errno) + "\n";
    return write(report, reason.data(), reason.size()) < 0 ? 74 : 127;
}
