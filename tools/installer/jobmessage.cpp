// SPDX-License-Identifier: MIT
#include "installer/jobmessage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <utility>
#include <vector>

namespace tx::installer {

namespace {

/// The kernel's limit for one message (SCM_MAX_FD).
constexpr size_t mostDescriptors = 253;

/// Missing in `linux/magic.h` of some systems.
constexpr long bpfMagic = 0xcafe4a11;
constexpr long configMagic = 0x62656570;

/// Returns whether the kernel generates the content of this file system's files.
bool isMadeUp(const struct statfs &volume) {
    constexpr std::array<long, 10> kinds{
        PROC_SUPER_MAGIC,   SYSFS_MAGIC,    DEBUGFS_MAGIC,       TRACEFS_MAGIC, SECURITYFS_MAGIC,
        CGROUP_SUPER_MAGIC, PSTOREFS_MAGIC, CGROUP2_SUPER_MAGIC, bpfMagic,      configMagic};
    return std::find(kinds.begin(), kinds.end(), static_cast<long>(volume.f_type)) != kinds.end();
}

/// Returns why packets cannot be received from the descriptor; empty for a local packet socket.
std::string problemOfSocket(int socket) {
    int kind = 0;
    int domain = 0;
    socklen_t size = sizeof kind;
    if (getsockopt(socket, SOL_SOCKET, SO_TYPE, &kind, &size) != 0 ||
        getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || kind != SOCK_SEQPACKET ||
        domain != AF_UNIX)
        return "the standard input is not a local socket of packets (SOCK_SEQPACKET)";
    return {};
}

/// Waits for a message. Returns false if none arrives within the limit.
bool awaitMessage(int socket, std::chrono::milliseconds limit) {
    using std::chrono::milliseconds;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        struct pollfd watched {
            socket, POLLIN, 0
        };
        const int count = poll(&watched, 1, static_cast<int>(std::max(milliseconds(0), left).count()));
        if (count >= 0 || errno != EINTR)
            return count > 0;
    }
}

/// Returns the descriptors that came with a message. This process owns them and must close each of them.
std::vector<posix::Descriptor> descriptorsOf(struct msghdr &header) {
    std::vector<posix::Descriptor> result;
    for (struct cmsghdr *part = CMSG_FIRSTHDR(&header); part; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
            result.emplace_back(number);
        }
    }
    return result;
}

} // namespace

std::string problemOfArchive(int descriptor) {
    const int flags = fcntl(descriptor, F_GETFL);
    struct stat info {};
    struct statfs volume {};
    if (flags < 0 || fstat(descriptor, &info) != 0)
        return std::string("the archive cannot be looked at: ") + std::strerror(errno);
    if (!S_ISREG(info.st_mode))
        return "the archive is not a regular file";
    if ((flags & O_PATH) != 0 || (flags & O_ACCMODE) == O_WRONLY)
        return "the archive was not opened for reading";
    if (fstatfs(descriptor, &volume) != 0)
        return std::string("the archive cannot be looked at: ") + std::strerror(errno);
    return isMadeUp(volume) ? "the archive is not a file on a disk" : std::string();
}

std::string receiveJob(int socket, std::chrono::milliseconds limit, JobMessage &message) {
    message = JobMessage();
    if (std::string problem = problemOfSocket(socket); !problem.empty())
        return problem;
    if (!awaitMessage(socket, limit))
        return "no job came in time";
    std::vector<char> words(longestJob);
    alignas(struct cmsghdr) std::array<char, CMSG_SPACE(mostDescriptors * sizeof(int))> control{};
    struct iovec place {
        words.data(), words.size()
    };
    struct msghdr header {};
    header.msg_iov = &place;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
    ssize_t count = 0;
    do {
        count = recvmsg(socket, &header, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        return std::string("the job cannot be received: ") + std::strerror(errno);
    std::vector<posix::Descriptor> sent = descriptorsOf(header);
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0)
        return "the job is longer than " + std::to_string(longestJob) + " bytes, or has too many descriptors";
    if (sent.size() > 1)
        return "one archive was expected, " + std::to_string(sent.size()) + " descriptors came";
    if (!sent.empty()) {
        if (std::string problem = problemOfArchive(sent.front().get()); !problem.empty())
            return problem;
        message.archive = std::move(sent.front());
    }
    message.words.assign(words.data(), static_cast<size_t>(count));
    return {};
}

} // namespace tx::installer
