// SPDX-License-Identifier: MIT
#include "installer/installer.h"

#include "installer/ownplace.h"
#include "posix/trustedpath.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace tx::installer {

namespace {

/// Reads "umask 0022", the file mode mask that the host recorded.
bool readMask(const std::string &text, std::optional<mode_t> *mask) {
    const std::string word = "umask ";
    const std::string digits = text.compare(0, word.size(), word) == 0 ? text.substr(word.size()) : "";
    if (digits.empty() || digits.size() > 4 || digits.find_first_not_of("01234567") != std::string::npos)
        return false;
    if (mask)
        *mask = static_cast<mode_t>(std::stoul(digits, nullptr, 8)) & 0777;
    return true;
}

/// Reads the record if it is a regular file of `user` that nobody else may write to. A truncated record is
/// not used: a truncated variable could mean anything.
std::vector<std::string> readRecord(const std::string &path, uid_t user, std::optional<mode_t> *mask,
                                    Handover *handover) {
    const posix::Descriptor fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!fd.isOpen() || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != user ||
        (info.st_mode & 0077) != 0 || !posix::writableByOthers(fd.get(), path, user).empty())
        return {};
    std::string content;
    char buffer[4096];
    constexpr size_t largestRecord = 4 << 20;
    for (ssize_t n = 0; (n = read(fd.get(), buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || content.size() + static_cast<size_t>(n) > largestRecord)
            return {};
        content.append(buffer, static_cast<size_t>(n));
    }
    if (content.empty() || content.back() != '\0')
        return {};
    std::vector<std::string> result;
    for (size_t start = 0; start < content.size();) {
        const size_t end = content.find('\0', start);
        const std::string variable = content.substr(start, end - start);
        // An empty string ends the variables. The handover is after it.
        if (variable.empty()) {
            Handover recorded;
            if (handover && unpack(content.substr(end + 1), recorded))
                *handover = recorded;
            break;
        }
        if (variable.find('=') != std::string::npos)
            result.push_back(variable);
        else
            (void)readMask(variable, mask);
        start = end + 1;
    }
    return result;
}

/// The minimum that a program needs if nothing was recorded.
std::vector<std::string> plainEnvironment(uid_t user) {
    std::vector<std::string> result{"PATH=/usr/local/bin:/usr/bin:/bin"};
    if (const struct passwd *entry = getpwuid(user)) {
        result.push_back(std::string("HOME=") + entry->pw_dir);
        result.push_back(std::string("USER=") + entry->pw_name);
        result.push_back(std::string("LOGNAME=") + entry->pw_name);
    }
    result.push_back("XDG_RUNTIME_DIR=/run/user/" + std::to_string(user));
    return result;
}

} // namespace

bool identifyUser(const Arguments &arguments, Session &session, std::string &why) {
    session = {};
    session.user = getuid();
    session.group = getgid();
    if (geteuid() != 0)
        return true;
    const char *caller = std::getenv("PKEXEC_UID");
    if (caller) {
        const struct passwd *entry = readUser(caller, session.user) ? getpwuid(session.user) : nullptr;
        if (!entry) {
            why = std::string("PKEXEC_UID should be the number of a user, not \"") + caller + "\"";
            return false;
        }
        session.group = entry->pw_gid;
    } else {
        // Otherwise the user is the one who unpacked the new application.
        struct stat info {};
        if (lstat(arguments.newApplication.c_str(), &info) != 0) {
            why = arguments.newApplication + " is no application: " + std::strerror(errno);
            return false;
        }
        const struct passwd *entry = getpwuid(info.st_uid);
        session.user = info.st_uid;
        session.group = entry ? entry->pw_gid : info.st_gid;
    }
    session.dropsPrivileges = session.user != 0;
    return true;
}

std::vector<std::string> environmentFor(uid_t user, const std::string &environmentRecord,
                                        std::optional<mode_t> *mask, Handover *handover) {
    std::vector<std::string> result = readRecord(environmentRecord, user, mask, handover);
    return result.empty() ? plainEnvironment(user) : result;
}

bool Rights::lower(const Session &session) {
    if (!session.dropsPrivileges)
        return true;
    const struct passwd *entry = getpwuid(session.user);
    const bool hasGroups =
        entry ? initgroups(entry->pw_name, session.group) == 0 : setgroups(0, nullptr) == 0;
    return hasGroups && setegid(session.group) == 0 && seteuid(session.user) == 0 &&
           geteuid() == session.user && getegid() == session.group;
}

bool Rights::raise(const Session &session) {
    if (!session.dropsPrivileges)
        return true;
    return seteuid(0) == 0 && setegid(0) == 0 && setgroups(0, nullptr) == 0 && geteuid() == 0;
}

Rights &processRights() {
    static Rights rights;
    return rights;
}

int prepare(const std::vector<std::string> &words, const std::string &environmentRecord, Rights &rights,
            Arguments &arguments, Session &session, std::string &why) {
    if (!parseArguments(words, arguments, why) || !identifyUser(arguments, session, why))
        return StatusUsage;
    if (!rights.lower(session)) {
        why = "cannot give up the rights of an administrator: " + std::string(std::strerror(errno));
        return StatusNoRights;
    }
    const bool fits = checkBundles(arguments, why);
    session.environment = environmentFor(session.user, environmentRecord, &session.mask, &session.handover);
    if (!rights.raise(session)) {
        why = "cannot regain the rights of an administrator: " + std::string(std::strerror(errno));
        return StatusNoRights;
    }
    return fits ? StatusDone : StatusUsage;
}

bool waitForEnd(pid_t process, std::chrono::milliseconds limit) {
    const posix::Descriptor fd(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    if (!fd.isOpen() && errno == ESRCH)
        return true;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (fd.isOpen()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        struct pollfd watched {
            fd.get(), POLLIN, 0
        };
        const int result = poll(&watched, 1, static_cast<int>(std::max<long long>(0, left.count())));
        if (result >= 0 || errno != EINTR)
            return result > 0;
    }
    // An old kernel: poll.
    while (kill(process, 0) == 0 || errno == EPERM) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

} // namespace tx::installer
