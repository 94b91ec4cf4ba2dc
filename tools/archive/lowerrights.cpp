// SPDX-License-Identifier: MIT
#include "archive/lowerrights.h"

#include "posix/posixfiles.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tx::tools {

namespace {

std::string failed(const char *step) { return std::string(step) + ": " + std::strerror(errno); }

/// Lowers a limit; a limit that is lower already stays. Returns whether that succeeded.
bool limit(int resource, uint64_t most) {
    struct rlimit now {};
    if (getrlimit(resource, &now) != 0)
        return false;
    now.rlim_max = std::min<rlim_t>(now.rlim_max, most);
    now.rlim_cur = std::min(now.rlim_cur, now.rlim_max);
    return setrlimit(resource, &now) == 0;
}

std::string limitResources(uint64_t unpacked) {
    const uint64_t size = std::max(unpacked, usualUnpackedSize);
    if (!limit(RLIMIT_CORE, 0))
        return failed("no core dumps");
    // No file is larger than the content. The usual size is the least, because an archive that comes through
    // a pipe is copied first, and may be larger than a small limit on its content. A write beyond the limit
    // must fail, and not end the process.
    if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || !limit(RLIMIT_FSIZE, size))
        return failed("limit of the file size");
    // Even the slowest decoder on a slow machine writes more than 1 MiB per second.
    if (!limit(RLIMIT_CPU, size >> 20))
        return failed("limit of the processor time");
#ifndef TX_SANITIZED // a sanitizer reserves terabytes
    // The largest window of a decoder has 128 MiB. An entry, which counts at least 4 KiB, takes less than
    // 1 KiB in memory.
    constexpr uint64_t base = uint64_t(2) << 30;
    if (!limit(RLIMIT_AS, base + size / 4))
        return failed("limit of the address space");
#endif
    return {};
}

/// The kernel's landlock_ruleset_attr, which older headers contain only in part. An older kernel accepts the
/// members that it does not know if they are 0.
struct Handled {
    uint64_t files;
    uint64_t network;
    uint64_t scopes;
};

constexpr uint64_t truncateFile = uint64_t(1) << 14;
constexpr uint64_t useDevice = uint64_t(1) << 15;
constexpr uint64_t allOfFirstVersion = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;
constexpr uint64_t neededInFolder =
    LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_DIR |
    LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
    LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SYM | LANDLOCK_ACCESS_FS_REFER;

std::string restrictFiles(const std::string &folder) {
    const auto version =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
    if (version < 0 && errno != ENOSYS && errno != EOPNOTSUPP)
        return failed("Landlock");
    // The first version (kernels 5.13 to 5.18) permits no rename from one folder to another.
    if (version < 2)
        return {};
    Handled handled{allOfFirstVersion | LANDLOCK_ACCESS_FS_REFER, 0, 0};
    uint64_t permitted = neededInFolder;
    if (version >= 3) {
        handled.files |= truncateFile;
        permitted |= truncateFile;
    }
    if (version >= 4)
        handled.network = 3; // to listen, and to connect
    if (version >= 5)
        handled.files |= useDevice;
    if (version >= 6)
        handled.scopes = 3; // abstract sockets, and signals to other processes
    const posix::Descriptor rules(
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, sizeof handled, 0)));
    if (!rules.isOpen())
        return failed("Landlock");
    const posix::Descriptor open(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!open.isOpen())
        return failed(folder.c_str());
    const landlock_path_beneath_attr rule{permitted, open.get()};
    if (syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0 ||
        syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0)
        return failed("Landlock");
    return {};
}

} // namespace

std::string lowerRights(const std::string &folder, uint64_t unpacked) {
    closefrom(STDERR_FILENO + 1);
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return failed("no new rights");
    // A core dump that goes to a program is not subject to the limit.
    if (prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0)
        return failed("no core dumps");
    if (std::string problem = limitResources(unpacked); !problem.empty())
        return problem;
    return restrictFiles(folder);
}

} // namespace tx::tools
