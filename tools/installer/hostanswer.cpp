// SPDX-License-Identifier: MIT
#include "installer/hostanswer.h"

#include "posix/installerstatus.h"
#include "posix/readwrite.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

namespace {

bool writeAll(const std::string &text) {
    return posix::writeAll(STDOUT_FILENO, text.data(), text.size()) == text.size();
}

/// True if both are the same, for example on a terminal, where the reason would appear twice.
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
    const bool said = writeAll(readyLine);
    m_host = posix::Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // Without /dev/null the pipe stays; nothing more is written to it.
    if (null >= 0) {
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    return said;
}

bool HostAnswer::unheard() const {
    struct stat info {};
    if (!m_host.isOpen() || fstat(m_host.get(), &info) != 0 || !S_ISFIFO(info.st_mode))
        return false;
    struct pollfd watched {
        m_host.get(), 0, 0
    };
    // A host that has read the report closes its end as well, but has emptied the pipe before.
    int left = 0;
    return poll(&watched, 1, 0) == 1 && (watched.revents & POLLERR) != 0 &&
           (ioctl(m_host.get(), FIONREAD, &left) != 0 || left > 0);
}

void HostAnswer::refuse() {
    if (!m_answered && !outputsAreOne())
        (void)writeAll(m_reason);
    m_answered = true;
}

} // namespace tx::installer
