// SPDX-License-Identifier: MIT
#include "installer/files.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx::installer {

posix::FileError Files::rename(const std::string &from, const std::string &to) {
    return std::rename(from.c_str(), to.c_str()) == 0 ? posix::FileError{} : posix::FileError{errno, from};
}

posix::FileError Files::exchange(const std::string &a, const std::string &b) { return posix::exchange(a, b); }

posix::FileError Files::copyTree(const std::string &from, const std::string &to) {
    struct stat info {};
    if (geteuid() == 0 && lstat(from.c_str(), &info) == 0 && info.st_uid != 0)
        return posix::copyTreeOf(info.st_uid, from, to);
    return posix::copyTree(from, to);
}

posix::FileError Files::makeDirectory(const std::string &path) {
    return mkdir(path.c_str(), 0700) == 0 ? posix::FileError{} : posix::FileError{errno, path};
}

posix::FileError Files::copyTreeOf(uid_t owner, const std::string &from, const std::string &to) {
    return posix::copyTreeOf(owner, from, to);
}

posix::FileError Files::removeTree(const std::string &path) { return posix::removeTree(path); }

posix::FileError Files::removeFile(const std::string &path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT ? posix::FileError{} : posix::FileError{errno, path};
}

posix::FileError Files::changeOwner(const std::string &path, uid_t owner, gid_t group) {
    return posix::changeOwner(path, owner, group);
}

posix::FileError Files::changeMode(const std::string &path, mode_t mode) {
    return fchmodat(AT_FDCWD, path.c_str(), mode, 0) == 0 ? posix::FileError{}
                                                          : posix::FileError{errno, path};
}

posix::FileError Files::lock(const std::string &path, posix::Descriptor &lock) {
    for (;;) {
        posix::Descriptor file(
            open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
        if (!file.isOpen() || flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            return {errno, path};
        // Whoever held it before may have removed it, and a third one made another.
        struct stat held {};
        struct stat there {};
        if (fstat(file.get(), &held) == 0 && lstat(path.c_str(), &there) == 0 &&
            held.st_ino == there.st_ino && held.st_dev == there.st_dev) {
            lock = std::move(file);
            return {};
        }
    }
}

posix::FileError Files::syncFileSystem(const std::string &path) { return posix::syncFileSystem(path); }
posix::FileError Files::syncDirectory(const std::string &path) { return posix::syncDirectory(path); }

} // namespace tx::installer
