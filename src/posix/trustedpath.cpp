// SPDX-License-Identifier: MIT
#include "posix/trustedpath.h"

#include "posix/posixfiles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <grp.h>
#include <mutex>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <vector>

namespace tx::posix {

namespace {

/// Calls one of the functions that look up an account, with a growing buffer; null if there is no such
/// account.
template <typename Entry, typename Id>
const Entry *lookUp(int (*find)(Id, Entry *, char *, size_t, Entry **), Id id, Entry &entry,
                    std::vector<char> &buffer) {
    Entry *found = nullptr;
    for (size_t size = 16384; size <= 1U << 22; size *= 4) {
        buffer.resize(size);
        const int number = find(id, &entry, buffer.data(), buffer.size(), &found);
        if (number != ERANGE && number != EINTR)
            return number == 0 ? found : nullptr;
    }
    return nullptr;
}

/// True if a user other than `user` and root has `group` as primary group, or if the list of users cannot be
/// read completely. Some services do not list all users; the group's name is checked as well.
bool isPrimaryGroupOfOthers(gid_t group, uid_t user) {
    static std::mutex mutex; // a process can read the list of users only once at a time
    const std::lock_guard locker(mutex);
    bool result = false;
    bool hasRoot = false;
    setpwent();
    for (;;) {
        errno = 0;
        const struct passwd *entry = getpwent();
        if (!entry) {
            // ENOENT: a service without its own database. Some services lose the error number of another one,
            // but a list that was read contains root.
            result = result || !hasRoot || (errno != 0 && errno != ENOENT);
            break;
        }
        hasRoot = hasRoot || entry->pw_uid == 0;
        if (entry->pw_gid == group && entry->pw_uid != 0 && entry->pw_uid != user)
            result = true;
    }
    endpwent();
    return result;
}

/// True for a group without members other than `user` and root: root's group, and the group that many systems
/// create for each user under the user's name.
bool isPrivateGroup(gid_t group, uid_t user) {
    struct passwd userEntry {};
    struct group groupEntry {};
    std::vector<char> userBuffer;
    std::vector<char> groupBuffer;
    const struct passwd *owner = lookUp(getpwuid_r, group == 0 ? uid_t{0} : user, userEntry, userBuffer);
    const struct group *found = lookUp(getgrgid_r, group, groupEntry, groupBuffer);
    if (!owner || !found || owner->pw_gid != group || std::strcmp(found->gr_name, owner->pw_name) != 0)
        return false;
    for (char **member = found->gr_mem; member && *member; ++member) {
        if (std::strcmp(*member, owner->pw_name) != 0 && std::strcmp(*member, "root") != 0)
            return false;
    }
    return !isPrimaryGroupOfOthers(group, user);
}

/// Reads an extended attribute: its size, or -1 and errno.
using AttributeReader = std::function<ssize_t(const char *name, void *value, size_t size)>;

/// Whether the permission bits of a file, or its access list, let somebody else write.
bool othersMayWrite(const struct stat &info, uid_t user, const AttributeReader &readAttribute) {
    struct Entry {
        uint16_t tag;
        uint16_t bits;
        uint32_t id;
    };
    constexpr uint16_t namedUser = 0x02, owningGroup = 0x04, namedGroup = 0x08, mask = 0x10, others = 0x20;
    constexpr uint16_t writes = 2;
    constexpr uint32_t version = 2;
    std::vector<char> list(1 << 16);
    const ssize_t size = readAttribute("system.posix_acl_access", list.data(), list.size());
    if (size < 0 && errno != ENODATA && errno != EOPNOTSUPP)
        return true;
    if (size <= 0)
        return (info.st_mode & S_IWOTH) != 0 ||
               ((info.st_mode & S_IWGRP) != 0 && !isPrivateGroup(info.st_gid, user));
    uint32_t found = 0;
    const size_t length = static_cast<size_t>(size);
    if (length < sizeof found || (length - sizeof found) % sizeof(Entry) != 0)
        return true;
    std::memcpy(&found, list.data(), sizeof found);
    if (found != version)
        return true;
    std::vector<Entry> entries((length - sizeof found) / sizeof(Entry));
    std::memcpy(entries.data(), list.data() + sizeof found, entries.size() * sizeof(Entry));
    uint16_t most = writes;
    for (const Entry &entry : entries) {
        if (entry.tag == mask)
            most = entry.bits;
    }
    for (const Entry &entry : entries) {
        const bool allows = (entry.bits & writes) != 0;
        const bool allowsMasked = allows && (most & writes) != 0;
        if ((entry.tag == others && allows) ||
            (entry.tag == namedUser && allowsMasked && entry.id != 0 && entry.id != user) ||
            (entry.tag == owningGroup && allowsMasked && !isPrivateGroup(info.st_gid, user)) ||
            (entry.tag == namedGroup && allowsMasked && !isPrivateGroup(entry.id, user)))
            return true;
    }
    return false;
}

/// The position of a file in a path.
enum class Part { Above, End };

/// Accepts root, the user and, for folders above, the owner of "/", who can do everything here anyway: in a
/// user namespace root has another number.
bool isTrustedOwner(uid_t owner, uid_t user, Part part) {
    struct stat top {};
    return owner == 0 || owner == user ||
           (part == Part::Above && stat("/", &top) == 0 && owner == top.st_uid);
}

std::string problemOf(const std::string &name, const struct stat &info, uid_t user, Part part,
                      const AttributeReader &readAttribute) {
    if (!isTrustedOwner(info.st_uid, user, part))
        return name + " belongs to another user";
    // A link is replaced, not written to.
    if (S_ISLNK(info.st_mode))
        return {};
    // In a folder with the sticky bit, users cannot replace entries of others.
    if (part == Part::Above && (info.st_mode & S_ISVTX) != 0)
        return {};
    if (othersMayWrite(info, user, readAttribute))
        return name + " can be written to by other users";
    return {};
}

AttributeReader readerFor(const std::string &path) {
    return [path](const char *name, void *value, size_t size) {
        return lgetxattr(path.c_str(), name, value, size);
    };
}

/// Puts the components of `path` before those that are still to be walked.
void prepend(const std::string &path, std::deque<std::string> &left) {
    std::vector<std::string> components;
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        if (end > start && path.compare(start, end - start, ".") != 0)
            components.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    left.insert(left.begin(), components.begin(), components.end());
}

/// Walks `path`, whose last component counts as `last`.
std::string walk(const std::string &path, std::string &resolved, uid_t user, Part last) {
    if (path.empty() || path.front() != '/')
        return "\"" + path + "\" is not an absolute path";
    std::deque<std::string> left;
    prepend(path, left);
    int links = 0;
    // From the top down, so that others cannot change what has been checked while the rest is checked.
    for (std::string current = "/";;) {
        struct stat info {};
        if (lstat(current.c_str(), &info) != 0)
            return current + ": " + std::strerror(errno);
        const Part part = left.empty() ? last : Part::Above;
        const bool isLink = S_ISLNK(info.st_mode);
        if (std::string problem =
                problemOf(current, info, user, isLink ? Part::Above : part, readerFor(current));
            !problem.empty())
            return problem;
        if (isLink) {
            char target[PATH_MAX];
            const ssize_t length = readlink(current.c_str(), target, sizeof target);
            constexpr int mostLinks = 40;
            if (length <= 0 || length == static_cast<ssize_t>(sizeof target) || ++links > mostLinks)
                return current + ": " + std::strerror(length < 0 ? errno : ELOOP);
            prepend(std::string(target, static_cast<size_t>(length)), left);
            current = target[0] == '/' ? "/" : parentOf(current);
            continue;
        }
        if (left.empty()) {
            resolved = current;
            return {};
        }
        const std::string next = left.front();
        left.pop_front();
        if (next == "..")
            current = parentOf(current);
        else
            current += (current == "/" ? "" : "/") + next;
    }
}

} // namespace

std::string untrustedPart(const std::string &path, std::string &resolved, uid_t user) {
    return walk(path, resolved, user, Part::End);
}

std::string untrustedFolder(const std::string &path, uid_t user) {
    std::string resolved;
    return walk(path, resolved, user, Part::Above);
}

std::string writableByOthers(const std::string &path, uid_t user) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0)
        return path + ": " + std::strerror(errno);
    return problemOf(path, info, user, Part::End, readerFor(path));
}

std::string writableByOthers(int descriptor, const std::string &name, uid_t user) {
    struct stat info {};
    if (fstat(descriptor, &info) != 0)
        return name + ": " + std::strerror(errno);
    return problemOf(name, info, user, Part::End,
                     [descriptor](const char *attribute, void *value, size_t size) {
                         const ssize_t length = fgetxattr(descriptor, attribute, value, size);
                         if (length >= 0 || errno != EBADF)
                             return length;
                         // A descriptor opened with O_PATH gives no other access to attributes.
                         const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
                         return getxattr(path.c_str(), attribute, value, size);
                     });
}

} // namespace tx::posix
