// SPDX-License-Identifier: MIT
#include "platform/linux/trustedpath.h"

#include "platform/linux/posixfiles.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tx::posix {

namespace {

/// True for root's group, and for the group that holds nobody but this user, as many systems make one for
/// each.
bool isPrivateGroup(gid_t group) {
    if (group == 0)
        return true;
    struct passwd user {};
    struct passwd *foundUser = nullptr;
    std::vector<char> userBuffer(16384);
    if (getpwuid_r(geteuid(), &user, userBuffer.data(), userBuffer.size(), &foundUser) != 0 || !foundUser ||
        user.pw_gid != group)
        return false;
    struct group entry {};
    struct group *found = nullptr;
    std::vector<char> buffer(65536);
    if (getgrgid_r(group, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return false;
    for (char **member = entry.gr_mem; member && *member; ++member) {
        if (std::strcmp(*member, user.pw_name) != 0)
            return false;
    }
    return std::strcmp(entry.gr_name, user.pw_name) == 0;
}

std::string problemOf(const std::string &path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return path + ": " + std::strerror(errno);
    if (info.st_uid != 0 && info.st_uid != geteuid())
        return path + " belongs to another user";
    // In a folder with the sticky bit nobody replaces another one's entries.
    if (S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0)
        return {};
    if ((info.st_mode & S_IWOTH) != 0 || ((info.st_mode & S_IWGRP) != 0 && !isPrivateGroup(info.st_gid)))
        return path + " can be written to by other users";
    return {};
}

} // namespace

std::string untrustedPart(const std::string &path, std::string &resolved) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
    if (!real)
        return path + ": " + std::strerror(errno);
    resolved = real.get();
    for (std::string part = resolved;; part = parentOf(part)) {
        if (std::string problem = problemOf(part); !problem.empty())
            return problem;
        if (part == "/")
            return {};
    }
}

} // namespace tx::posix
