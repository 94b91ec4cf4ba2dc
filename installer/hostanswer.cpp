// SPDX-License-Identifier: MIT
#include "installer/hostanswer.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

namespace {

bool writeAll(const std::string &text) {
    for (size_t written = 0; written < text.size();) {
        const ssize_t n = write(STDOUT_FILENO, text.data() + written, text.size() - written);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        written += static_cast<size_t>(n);
    }
    return true;
}

/// True on a terminal, say, where the reason would be there twice.
bool outputsAreOne() {
    struct stat output {};
    struct stat errors {};
    return fstat(STDOUT_FILENO, &output) == 0 && fstat(STDERR_FILENO, &errors) == 0 &&
           output.st_dev == errors.st_dev && output.st_ino == errors.st_ino;
}

} // namespace

void HostAnswer::note(const std::string &line) {
    if (!m_answered)
        m_reason += line + '\n';
}

bool HostAnswer::ready() {
    m_answered = true;
    const bool said = writeAll("ready\n");
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // Without /dev/null the pipe stays; nothing more is written to it.
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    return said;
}

void HostAnswer::refuse() {
    if (!m_answered && !outputsAreOne())
        (void)writeAll(m_reason);
    m_answered = true;
}

} // namespace tx::installer
