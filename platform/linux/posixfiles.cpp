// SPDX-License-Identifier: MIT
#include "platform/linux/posixfiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tx::posix {

namespace fs = std::filesystem;

namespace {

FileError failure(const std::string &path) { return {errno ? errno : EIO, path}; }

/// Copies what the file system supports of the extended attributes; a target that has none is no error.
FileError copyAttributes(int from, int to, const std::string &path) {
    const ssize_t size = flistxattr(from, nullptr, 0);
    if (size <= 0)
        return {};
    std::vector<char> names(static_cast<size_t>(size));
    const ssize_t read = flistxattr(from, names.data(), names.size());
    std::vector<char> value;
    for (ssize_t i = 0; i < read; i += static_cast<ssize_t>(std::string(&names[size_t(i)]).size()) + 1) {
        const char *name = &names[static_cast<size_t>(i)];
        const ssize_t length = fgetxattr(from, name, nullptr, 0);
        if (length < 0)
            continue;
        value.resize(static_cast<size_t>(length));
        if (fgetxattr(from, name, value.data(), value.size()) != length)
            continue;
        // Attributes of the system and of security modules belong to the place, not to the file.
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
        for (ssize_t written = 0; written < n;) {
            const ssize_t w = write(to, buffer.data() + written, static_cast<size_t>(n - written));
            if (w < 0 && errno == EINTR)
                continue;
            if (w <= 0)
                return failure(path);
            written += w;
        }
    }
    return {};
}

FileError copyLink(int fromDir, const char *fromName, int toDir, const char *toName,
                   const std::string &path) {
    std::vector<char> target(4096);
    const ssize_t length = readlinkat(fromDir, fromName, target.data(), target.size() - 1);
    if (length < 0)
        return failure(path);
    target[static_cast<size_t>(length)] = '\0';
    return symlinkat(target.data(), toDir, toName) == 0 ? FileError{} : failure(path);
}

/// How the files of a tree are made.
struct Files {
    bool linked = false;                  ///< shared with the original
    uid_t owner = static_cast<uid_t>(-1); ///< whose they must be; -1: anybody's
};

FileError copyEntry(int fromDir, const char *fromName, int toDir, const char *toName, const Files &files,
                    const std::string &path);

FileError copyFile(int fromDir, const char *fromName, int toDir, const char *toName, const Files &files,
                   const std::string &path) {
    // Not waiting for a pipe, should one have come into its place.
    const Descriptor from(openat(fromDir, fromName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!from.isOpen() || fstat(from.get(), &info) != 0)
        return failure(path);
    if (!S_ISREG(info.st_mode))
        return {EINVAL, path};
    if (files.owner != static_cast<uid_t>(-1) && info.st_uid != files.owner)
        return {EPERM, path};
    Descriptor to(openat(toDir, toName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to.isOpen())
        return failure(path);
    if (FileError error = copyData(from.get(), to.get(), info.st_size, path))
        return error;
    if (FileError error = copyAttributes(from.get(), to.get(), path))
        return error;
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    if (fchmod(to.get(), info.st_mode & 07777) != 0 || futimens(to.get(), times) != 0)
        return failure(path);
    if (const int number = to.reset())
        return {number, path};
    return {};
}

/// A second name for a file of this user; another user's file would keep its owner.
bool linkFile(int fromDir, const char *fromName, int toDir, const char *toName, const struct stat &info) {
    return info.st_uid == geteuid() && linkat(fromDir, fromName, toDir, toName, 0) == 0;
}

FileError copyDirectory(int fromDir, const char *fromName, int toDir, const char *toName, const Files &files,
                        const struct stat &info, const std::string &path) {
    const Descriptor from(openat(fromDir, fromName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!from.isOpen() || mkdirat(toDir, toName, 0700) != 0)
        return failure(path);
    const Descriptor to(openat(toDir, toName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    DIR *stream = to.isOpen() ? fdopendir(dup(from.get())) : nullptr;
    if (!stream)
        return failure(path);
    std::vector<std::string> names;
    while (const dirent *entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(stream);
    for (const std::string &name : names) {
        if (FileError error =
                copyEntry(from.get(), name.c_str(), to.get(), name.c_str(), files, path + '/' + name))
            return error;
    }
    if (FileError error = copyAttributes(from.get(), to.get(), path))
        return error;
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    if (fchmod(to.get(), info.st_mode & 07777) != 0 || futimens(to.get(), times) != 0)
        return failure(path);
    return {};
}

FileError copyEntry(int fromDir, const char *fromName, int toDir, const char *toName, const Files &files,
                    const std::string &path) {
    struct stat info {};
    if (fstatat(fromDir, fromName, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return failure(path);
    if (S_ISLNK(info.st_mode))
        return copyLink(fromDir, fromName, toDir, toName, path);
    if (S_ISDIR(info.st_mode))
        return copyDirectory(fromDir, fromName, toDir, toName, files, info, path);
    if (S_ISREG(info.st_mode) && files.linked && linkFile(fromDir, fromName, toDir, toName, info))
        return {};
    if (S_ISREG(info.st_mode))
        return copyFile(fromDir, fromName, toDir, toName, files, path);
    return {EINVAL, path};
}

/// Makes every folder of a tree writable to its owner, so that its entries can be removed.
void openFolders(const fs::path &path) {
    std::error_code ignored;
    if (!fs::is_directory(fs::symlink_status(path, ignored)))
        return;
    fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const fs::directory_entry &entry : fs::directory_iterator(path, ignored))
        openFolders(entry.path());
}

} // namespace

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

bool entryExists(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

bool isDirectory(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

FileError copyTree(const std::string &from, const std::string &to) {
    if (entryExists(to))
        return {EEXIST, to};
    return copyEntry(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), {}, from);
}

FileError copyTreeOf(uid_t owner, const std::string &from, const std::string &to) {
    if (entryExists(to))
        return {EEXIST, to};
    return copyEntry(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), {.owner = owner}, from);
}

FileError linkTree(const std::string &from, const std::string &to) {
    if (entryExists(to))
        return {EEXIST, to};
    return copyEntry(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), {.linked = true}, from);
}

FileError removeTree(const std::string &path) {
    std::error_code error;
    fs::remove_all(path, error);
    if (error == std::errc::permission_denied) {
        openFolders(path);
        fs::remove_all(path, error);
    }
    if (error && error != std::errc::no_such_file_or_directory)
        return {error.value(), path};
    return {};
}

namespace {

/// The entries of an open folder, or an errno value.
int namesIn(int folder, std::vector<std::string> &names) {
    const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *stream = copy >= 0 ? fdopendir(copy) : nullptr;
    if (!stream)
        return errno;
    errno = 0;
    while (const dirent *entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    const int number = errno;
    closedir(stream);
    return number;
}

/// What is in a folder changes hands before the folder does: its new owner cannot put a link in the way.
FileError changeOwnerOfEntry(int folder, const char *name, uid_t owner, gid_t group,
                             const std::string &path) {
    struct stat info {};
    if (fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return failure(path);
    if (S_ISDIR(info.st_mode)) {
        const Descriptor inner(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        std::vector<std::string> names;
        if (const int number = inner.isOpen() ? namesIn(inner.get(), names) : errno)
            return {number, path};
        for (const std::string &each : names) {
            if (FileError error =
                    changeOwnerOfEntry(inner.get(), each.c_str(), owner, group, path + '/' + each))
                return error;
        }
    }
    const bool differs = info.st_uid != owner || info.st_gid != group;
    return differs && fchownat(folder, name, owner, group, AT_SYMLINK_NOFOLLOW) != 0 ? failure(path)
                                                                                     : FileError{};
}

} // namespace

FileError changeOwner(const std::string &path, uid_t owner, gid_t group) {
    return changeOwnerOfEntry(AT_FDCWD, path.c_str(), owner, group, path);
}

std::vector<SpecialBits> specialBitsBelow(const std::string &path) {
    std::vector<SpecialBits> result;
    std::error_code error;
    fs::recursive_directory_iterator it(path, error);
    for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error)) {
        struct stat info {};
        if (lstat(it->path().c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
            (info.st_mode & (S_ISUID | S_ISGID)) != 0)
            result.push_back({it->path().string().substr(path.size()), info.st_mode & 07777});
    }
    return result;
}

FileError syncFileSystem(const std::string &path) {
    const Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return fd.isOpen() && syncfs(fd.get()) == 0 ? FileError{} : failure(path);
}

FileError syncDirectory(const std::string &path) {
    const Descriptor fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.isOpen() && fsync(fd.get()) == 0 ? FileError{} : failure(path);
}

FileError exchange(const std::string &a, const std::string &b) {
    return renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0 ? FileError{}
                                                                                     : failure(b);
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

std::string findSpecialFile(const std::string &path) {
    std::error_code error;
    fs::recursive_directory_iterator it(path, error);
    for (const fs::recursive_directory_iterator end; !error && it != end; it.increment(error)) {
        const fs::file_type type = it->symlink_status(error).type();
        if (type != fs::file_type::regular && type != fs::file_type::directory &&
            type != fs::file_type::symlink)
            return it->path().string();
    }
    return {};
}

} // namespace tx::posix
