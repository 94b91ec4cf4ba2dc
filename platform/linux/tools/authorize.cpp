// SPDX-License-Identifier: MIT
// TXUpdateAuthorize: started by pkexec, so that the password dialog names this program. Says "authorized" and
// reads what to do from standard input, where a command is its words, each with a NUL behind it:
//   COMMAND                 until the end of the input: becomes the command
//   run LENGTH\n COMMAND    any number of times: runs the command and says "exit STATUS", or "failed: REASON"
// Without a command it ends.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t longestCommand = 1 << 20;
constexpr int badInput = 64;
constexpr int ioFailure = 74;

/// Reads up to `size` bytes, all of them unless the input ends; -1 for a failure.
ssize_t readFully(char *buffer, size_t size) {
    size_t got = 0;
    while (got < size) {
        const ssize_t n = read(STDIN_FILENO, buffer + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        got += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(got);
}

bool say(int descriptor, const std::string &line) {
    return write(descriptor, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool isCommand(const std::string &text) {
    return !text.empty() && text.back() == '\0' && text.front() == '/';
}

/// Replaces this process. The command gets no descriptor but the error output.
void become(std::string command, int report) {
    std::vector<char *> words;
    for (size_t i = 0; i < command.size(); i += std::strlen(&command[i]) + 1)
        words.push_back(&command[i]);
    words.push_back(nullptr);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    execv(words.front(), words.data());
    (void)say(report, std::string("failed: ") + std::strerror(errno) + "\n");
}

/// Becomes the command that is all of the input.
int becomeOnly(std::string command) {
    char buffer[4096];
    for (ssize_t n = 0; (n = readFully(buffer, sizeof buffer)) != 0;) {
        if (n < 0)
            return ioFailure;
        command.append(buffer, static_cast<size_t>(n));
        if (command.size() > longestCommand)
            return badInput;
    }
    if (!isCommand(command))
        return badInput;
    // The caller sees the end of this descriptor when the command has replaced this program.
    become(std::move(command), fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    return 127;
}

/// The end of a started command in words.
std::string outcomeOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return std::string("failed: ") + std::strerror(errno) + "\n";
    }
    if (!WIFEXITED(status))
        return "failed: a signal ended it\n";
    return "exit " + std::to_string(WEXITSTATUS(status)) + "\n";
}

/// Runs one command after the other; the first byte of the first has been read.
int runAll() {
    constexpr int notStarted = 127;
    for (std::string header = "r";; header.clear()) {
        while (header.empty() || header.back() != '\n') {
            char c = 0;
            const ssize_t n = readFully(&c, 1);
            if (n == 0 && header.empty())
                return 0;
            if (n != 1 || header.size() > 32)
                return badInput;
            header += c;
        }
        const unsigned long length =
            header.rfind("run ", 0) == 0 ? std::strtoul(header.c_str() + 4, nullptr, 10) : 0;
        std::string command(length <= longestCommand ? length : 0, '\0');
        if (readFully(command.data(), command.size()) != static_cast<ssize_t>(command.size()) ||
            !isCommand(command))
            return badInput;
        const pid_t child = fork();
        if (child == 0) {
            become(std::move(command), -1); // the exit status says it
            _exit(notStarted);
        }
        const std::string outcome =
            child < 0 ? std::string("failed: ") + std::strerror(errno) + "\n" : outcomeOf(child);
        if (!say(STDOUT_FILENO, outcome))
            return ioFailure;
    }
}

} // namespace

int main(int argc, char **) {
    if (argc != 1) {
        std::fputs("usage: TXUpdateAuthorize\n"
                   "Runs the commands that it reads, NUL-separated, from standard input.\n",
                   stderr);
        return badInput;
    }
    if (!say(STDOUT_FILENO, "authorized\n"))
        return ioFailure;
    char first = 0;
    if (readFully(&first, 1) != 1)
        return badInput;
    return first == 'r' ? runAll() : becomeOnly(std::string(1, first));
}
