// SPDX-License-Identifier: MIT
#include "posix/posixfiles.h"
#include "posix/posixfiles_p.h"

#include "posix/trustedpath.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace tx::posix {

namespace {

constexpr mode_t specialBits = S_ISUID | S_ISGID;

/// An open folder of the installed bundle, whose files decide which special bits may stay. Not open if it
/// does not exist, or if anyone but root could have put something into it.
Descriptor openInstalled(int folder, const char *name) {
    Descriptor result = openFolder(folder, name);
    if (result.isOpen() && !writableByOthers(result.get(), name, 0).empty())
        result.reset();
    return result;
}

/// The special bits that a file called `name` may have when it belongs to `owner` and `group`.
mode_t allowedBits(const Descriptor &installed, const char *name, uid_t owner, gid_t group) {
    struct stat info {};
    if (owner != 0 || !installed.isOpen() ||
        fstatat(installed.get(), name, &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode) ||
        info.st_uid != 0)
        return 0;
    return info.st_mode & (info.st_gid == group ? specialBits : mode_t{S_ISUID});
}

bool isWithout(int number) { return number == ENODATA || number == ENOTSUP || number == ENOSYS; }

/// Removes what was inherited from the parent folder.
bool dropAccessLists(int entry) {
    return (fremovexattr(entry, "system.posix_acl_access") == 0 || isWithout(errno)) &&
           (fremovexattr(entry, "system.posix_acl_default") == 0 || isWithout(errno));
}

/// A path for calls that do not accept a descriptor; it leads to what the descriptor holds, also with O_PATH.
std::string pathOf(const Descriptor &entry) { return "/proc/self/fd/" + std::to_string(entry.get()); }

/// Whether a file has an access list or capabilities, which a copy would not have.
bool hasRightsOfItsOwn(const Descriptor &file) {
    const std::string path = pathOf(file);
    for (const char *name : {"system.posix_acl_access", "security.capability"}) {
        if (getxattr(path.c_str(), name, nullptr, 0) >= 0 || !isWithout(errno))
            return true;
    }
    return false;
}

/// Copies the user's extended attributes; it is not an error if the target supports none. Attributes of the
/// system (such as access lists) and of security modules can give rights, and are not copied.
FileError copyAttributes(int from, int to, const std::string &path) {
    const ssize_t size = flistxattr(from, nullptr, 0);
    if (size <= 0)
        return {};
    std::vector<char> names(static_cast<size_t>(size));
    const ssize_t read = flistxattr(from, names.data(), names.size());
    std::vector<char> value;
    for (ssize_t i = 0; i < read; i += static_cast<ssize_t>(std::string(&names[size_t(i)]).size()) + 1) {
        const char *name = &names[static_cast<size_t>(i)];
        if (std::strncmp(name, "user.", 5) != 0)
            continue;
        const ssize_t length = fgetxattr(from, name, nullptr, 0);
        if (length < 0)
            continue;
        value.resize(static_cast<size_t>(length));
        if (fgetxattr(from, name, value.data(), value.size()) != length)
            continue;
        if (fsetxattr(to, name, value.data(), value.size(), 0) != 0 && errno != ENOTSUP && errno != EPERM)
            return failure(path);
    }
    return {};
}

FileError copyData(int from, int to, off_t size, const std::string &path) {
    if (ioctl(to, FICLONE, from) == 0)
        return {};
    off_t copied = 0;
    while (copied < size) {
        const ssize_t n = copy_file_range(from, nullptr, to, nullptr, static_cast<size_t>(size - copied), 0);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (copied == 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP))
                break;
            return failure(path);
        }
        if (n == 0)
            break;
        copied += n;
    }
    std::vector<char> buffer(copied < size || size == 0 ? 1U << 18 : 0);
    while (!buffer.empty()) {
        const ssize_t n = read(from, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return failure(path);
        if (n == 0)
            break;
        if (writeAll(to, buffer.data(), static_cast<size_t>(n)) != static_cast<size_t>(n))
            return failure(path);
    }
    // The file was truncated meanwhile. A part of it must not pass for all of it.
    struct stat made {};
    if (fstat(to, &made) != 0)
        return failure(path);
    return made.st_size < size ? FileError{EIO, path} : FileError{};
}

/// Copies one tree.
class Copier {
public:
    explicit Copier(const CopyRules &rules)
        : m_rules(rules) {}

    /// `installed` is the folder of the installed bundle that answers to the one around the entry.
    FileError copyEntry(const Place &from, const Place &to, const Descriptor &installed) const {
        struct stat info {};
        if (fstatat(from.folder, from.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            return failure(from.path);
        if (S_ISLNK(info.st_mode))
            return copyLink(from, to, info);
        if (S_ISDIR(info.st_mode))
            return copyDirectory(from, to,
                                 installed.isOpen() ? openInstalled(installed.get(), from.name.c_str())
                                                    : Descriptor());
        if (S_ISREG(info.st_mode) && m_rules.linksFiles && linkFile(from, to))
            return {};
        if (S_ISREG(info.st_mode))
            return copyFile(from, to, installed);
        return {EINVAL, from.path};
    }

    /// `installed` is the folder of the installed bundle that answers to this one.
    FileError copyDirectory(const Place &from, const Place &to, const Descriptor &installed) const {
        const Descriptor source = openFolder(from.folder, from.name.c_str());
        struct stat info {};
        if (!source.isOpen() || fstat(source.get(), &info) != 0)
            return failure(from.path);
        if (isRefused(info))
            return {EPERM, from.path};
        if (mkdirat(to.folder, to.name.c_str(), 0700) != 0)
            return failure(from.path);
        const Descriptor target = openFolder(to.folder, to.name.c_str());
        struct stat made {};
        if (!target.isOpen() || fstat(target.get(), &made) != 0 || !dropAccessLists(target.get()))
            return failure(from.path);
        // If others may write here, another folder may have replaced the one just created.
        if (made.st_uid != geteuid())
            return {EPERM, to.path};
        std::vector<std::string> names;
        if (const int number = namesIn(source.get(), names))
            return {number, from.path};
        for (const std::string &name : names) {
            if (FileError error = copyEntry(Place(source, from.path + '/' + name),
                                            Place(target, to.path + '/' + name), installed))
                return error;
        }
        // On a folder these bits only pass the group on; they give no rights.
        return finish(source, target, info, m_rules.bitsAsIn ? 0 : info.st_mode & specialBits, from.path);
    }

private:
    /// A second name for a file that gives nobody more rights than a copy would: the names share the owner,
    /// the mode, the access list and the capabilities.
    static bool linkFile(const Place &from, const Place &to) {
        const Descriptor file(openat(from.folder, from.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat info {};
        return file.isOpen() && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) &&
               info.st_uid == geteuid() && (info.st_mode & specialBits) == 0 && !hasRightsOfItsOwn(file) &&
               writableByOthers(file.get(), from.path, info.st_uid).empty() &&
               linkat(AT_FDCWD, pathOf(file).c_str(), to.folder, to.name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    }

    bool isRefused(const struct stat &info) const {
        return m_rules.onlyFrom && info.st_uid != *m_rules.onlyFrom;
    }

    std::optional<std::pair<uid_t, gid_t>> newOwner(const struct stat &original) const {
        if (geteuid() != 0)
            return std::nullopt;
        if (m_rules.givenTo || !m_rules.keepsOwners)
            return m_rules.givenTo;
        return std::pair(original.st_uid, original.st_gid);
    }

    FileError copyLink(const Place &from, const Place &to, const struct stat &info) const {
        std::vector<char> target(4096);
        const ssize_t length = readlinkat(from.folder, from.name.c_str(), target.data(), target.size() - 1);
        if (length < 0)
            return failure(from.path);
        target[static_cast<size_t>(length)] = '\0';
        if (symlinkat(target.data(), to.folder, to.name.c_str()) != 0)
            return failure(from.path);
        const auto owner = newOwner(info);
        return owner ? changeOwner(to, owner->first, owner->second) : FileError{};
    }

    FileError copyFile(const Place &from, const Place &to, const Descriptor &installed) const {
        // Does not block if a pipe has replaced the file.
        const Descriptor source(
            openat(from.folder, from.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (!source.isOpen() || fstat(source.get(), &info) != 0)
            return failure(from.path);
        if (!S_ISREG(info.st_mode))
            return {EINVAL, from.path};
        if (isRefused(info))
            return {EPERM, from.path};
        Descriptor target(
            openat(to.folder, to.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!target.isOpen() || !dropAccessLists(target.get()))
            return failure(from.path);
        if (FileError error = copyData(source.get(), target.get(), info.st_size, from.path))
            return error;
        const mode_t bits = bitsOf(target, info, installed, from.name);
        if (FileError error = finish(source, target, info, bits, from.path))
            return error;
        if (const int number = target.reset())
            return {number, from.path};
        return {};
    }

    /// The special bits of the copy of a file, which is open as `to`.
    mode_t bitsOf(const Descriptor &to, const struct stat &info, const Descriptor &installed,
                  const std::string &name) const {
        const mode_t wanted = info.st_mode & specialBits;
        struct stat made {};
        if (wanted == 0 || fstat(to.get(), &made) != 0)
            return 0;
        const auto [owner, group] = newOwner(info).value_or(std::pair(made.st_uid, made.st_gid));
        if (m_rules.bitsAsIn)
            return wanted & allowedBits(installed, name.c_str(), owner, group);
        // With another owner, the program would run with that owner's rights.
        return owner == 0 && owner == info.st_uid && group == info.st_gid ? wanted : 0;
    }

    /// Sets attributes, owner, mode and times of the copy. Changing the owner clears the special bits, so the
    /// mode is set after it.
    FileError finish(const Descriptor &from, const Descriptor &to, const struct stat &info, mode_t bits,
                     const std::string &path) const {
        if (FileError error = copyAttributes(from.get(), to.get(), path))
            return error;
        const auto owner = newOwner(info);
        if (owner && fchown(to.get(), owner->first, owner->second) != 0)
            return failure(path);
        const struct timespec times[2] = {info.st_atim, info.st_mtim};
        if (fchmod(to.get(), (info.st_mode & 07777 & ~specialBits) | bits) != 0 ||
            futimens(to.get(), times) != 0)
            return failure(path);
        return {};
    }

    const CopyRules &m_rules;
};

/// Calls `visit` with each entry of a folder; the first error ends it.
template <typename Visit>
FileError forEachEntry(const Descriptor &folder, const std::string &path, const Visit &visit) {
    std::vector<std::string> names;
    if (const int number = namesIn(folder.get(), names))
        return {number, path};
    for (const std::string &name : names) {
        if (FileError error = visit(Place(folder, path + '/' + name)))
            return error;
    }
    return {};
}

FileError limitBitsOfEntry(const Place &entry, const Descriptor &installed);

FileError limitBitsBelow(const Place &tree, const Descriptor &installed) {
    const Descriptor folder = openFolder(tree.folder, tree.name.c_str());
    if (!folder.isOpen())
        return failure(tree.path);
    return forEachEntry(folder, tree.path,
                        [&](const Place &inner) { return limitBitsOfEntry(inner, installed); });
}

FileError limitBitsOfEntry(const Place &entry, const Descriptor &installed) {
    const Descriptor held(openat(entry.folder, entry.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!held.isOpen() || fstat(held.get(), &info) != 0)
        return failure(entry.path);
    if (S_ISDIR(info.st_mode))
        return limitBitsBelow(entry, installed.isOpen() ? openInstalled(installed.get(), entry.name.c_str())
                                                        : Descriptor());
    const mode_t bits = info.st_mode & specialBits;
    if (!S_ISREG(info.st_mode) || bits == 0)
        return {};
    const mode_t kept = bits & allowedBits(installed, entry.name.c_str(), info.st_uid, info.st_gid);
    return kept == bits || changeModeOf(held, (info.st_mode & 07777 & ~specialBits) | kept)
               ? FileError{}
               : failure(entry.path);
}

} // namespace

FileError failure(const std::string &path) { return {errno ? errno : EIO, path}; }

Descriptor openFolder(int folder, const char *name) {
    return Descriptor(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Changes the mode of what a descriptor opened with O_PATH holds, which fchmod does not.
bool changeModeOf(const Descriptor &entry, mode_t mode) { return chmod(pathOf(entry).c_str(), mode) == 0; }

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    if (this != &other) {
        reset();
        m_fd = other.release();
    }
    return *this;
}

int Descriptor::release() {
    const int fd = m_fd;
    m_fd = -1;
    return fd;
}

int Descriptor::reset() {
    const int fd = release();
    return fd >= 0 && close(fd) != 0 ? errno : 0;
}

Place::Place(const std::string &wholePath)
    : folder(AT_FDCWD)
    , name(wholePath)
    , path(wholePath) {}

Place::Place(const char *wholePath)
    : Place(std::string(wholePath)) {}

Place::Place(const Descriptor &openFolder, const std::string &whole)
    : folder(openFolder.get())
    , name(lastComponentOf(whole))
    , path(whole) {}

bool entryExists(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

bool isDirectory(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

Descriptor openFolderWithoutLinks(const std::string &path) {
    Descriptor folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (size_t start = 1; folder.isOpen() && start < path.size();) {
        const size_t end = std::min(path.find('/', start), path.size());
        if (end > start)
            folder = Descriptor(openat(folder.get(), path.substr(start, end - start).c_str(),
                                       O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        start = end + 1;
    }
    return folder;
}

FileError copyTree(const Place &from, const Place &to, const CopyRules &rules) {
    struct stat info {};
    if (fstatat(to.folder, to.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0)
        return {EEXIST, to.path};
    const Copier copier(rules);
    if (!rules.bitsAsIn)
        return copier.copyEntry(from, to, Descriptor());
    return copier.copyDirectory(from, to,
                                openInstalled(rules.bitsAsIn->folder, rules.bitsAsIn->name.c_str()));
}

FileError changeOwner(const Place &tree, uid_t owner, gid_t group) {
    // The descriptor that was checked is the one whose owner is changed, whatever replaces the path.
    const Descriptor entry(openat(tree.folder, tree.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!entry.isOpen() || fstat(entry.get(), &info) != 0)
        return failure(tree.path);
    if (S_ISDIR(info.st_mode)) {
        const Descriptor folder = openFolder(entry.get(), ".");
        if (!folder.isOpen())
            return failure(tree.path);
        // The content of a folder gets its new owner before the folder: until then the new owner cannot reach
        // it.
        if (FileError error = forEachEntry(
                folder, tree.path, [&](const Place &inner) { return changeOwner(inner, owner, group); }))
            return error;
    }
    const bool differs = info.st_uid != owner || info.st_gid != group;
    return differs && fchownat(entry.get(), "", owner, group, AT_EMPTY_PATH) != 0 ? failure(tree.path)
                                                                                  : FileError{};
}

FileError limitSpecialBits(const Place &tree, const Place &installed) {
    return limitBitsBelow(tree, openInstalled(installed.folder, installed.name.c_str()));
}

FileError dropSpecialBits(const Place &tree) { return limitBitsBelow(tree, Descriptor()); }

FileError findSpecialFile(const Place &tree) {
    struct stat info {};
    if (fstatat(tree.folder, tree.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return failure(tree.path);
    if (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode))
        return {};
    if (!S_ISDIR(info.st_mode))
        return {EINVAL, tree.path};
    const Descriptor folder = openFolder(tree.folder, tree.name.c_str());
    if (!folder.isOpen())
        return failure(tree.path);
    return forEachEntry(folder, tree.path, [](const Place &entry) { return findSpecialFile(entry); });
}

FileError takeLock(const Place &file, Descriptor &lock) {
    constexpr int mostTries = 1000;
    for (int i = 0; i < mostTries; ++i) {
        constexpr int flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
        Descriptor held(openat(file.folder, file.name.c_str(), flags));
        if (!held.isOpen() && errno == ENOENT) {
            held = Descriptor(openat(file.folder, file.name.c_str(), flags | O_CREAT | O_EXCL, 0600));
            if (!held.isOpen() && errno == EEXIST)
                continue;
            struct stat around {};
            const bool isKnown = file.folder == AT_FDCWD ? stat(parentOf(file.path).c_str(), &around) == 0
                                                         : fstat(file.folder, &around) == 0;
            if (held.isOpen() && geteuid() == 0 && isKnown &&
                fchown(held.get(), around.st_uid, around.st_gid) != 0)
                return failure(file.path);
        }
        struct stat info {};
        if (!held.isOpen() || fstat(held.get(), &info) != 0)
            return failure(file.path);
        if (!S_ISREG(info.st_mode))
            return {EINVAL, file.path};
        if (flock(held.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EINTR)
                continue;
            return failure(file.path);
        }
        // The previous holder may have removed the file, and another process may have created a new one.
        struct stat there {};
        if (fstatat(file.folder, file.name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
            info.st_ino == there.st_ino && info.st_dev == there.st_dev) {
            lock = std::move(held);
            return {};
        }
    }
    return {EAGAIN, file.path};
}

FileError syncFileSystem(const Place &entry) {
    const int links = entry.folder == AT_FDCWD ? 0 : O_NOFOLLOW;
    const Descriptor fd(openat(entry.folder, entry.name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | links));
    return fd.isOpen() && syncfs(fd.get()) == 0 ? FileError{} : failure(entry.path);
}

FileError syncDirectory(const Place &folder) {
    const int links = folder.folder == AT_FDCWD ? 0 : O_NOFOLLOW;
    const Descriptor fd(
        openat(folder.folder, folder.name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links));
    return fd.isOpen() && fsync(fd.get()) == 0 ? FileError{} : failure(folder.path);
}

FileError exchange(const Place &a, const Place &b) {
    return renameat2(a.folder, a.name.c_str(), b.folder, b.name.c_str(), RENAME_EXCHANGE) == 0
               ? FileError{}
               : failure(b.path);
}

std::string parentOf(const std::string &path) {
    const size_t end = path.find_last_not_of('/');
    const size_t slash = end == std::string::npos ? std::string::npos : path.find_last_of('/', end);
    if (slash == std::string::npos || slash == 0)
        return "/";
    return path.substr(0, std::max<size_t>(1, path.find_last_not_of('/', slash) + 1));
}

std::string lastComponentOf(const std::string &path) {
    const size_t end = path.find_last_not_of('/');
    if (end == std::string::npos)
        return {};
    const size_t slash = path.find_last_of('/', end);
    const size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(begin, end - begin + 1);
}

} // namespace tx::posix
