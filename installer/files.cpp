// SPDX-License-Identifier: MIT
#include "installer/files.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace tx::installer {

posix::FileError Files::rename(const std::string &from, const std::string &to) {
    return std::rename(from.c_str(), to.c_str()) == 0 ? posix::FileError{} : posix::FileError{errno, from};
}

posix::FileError Files::exchange(const std::string &a, const std::string &b) { return posix::exchange(a, b); }

posix::FileError Files::copyTree(const std::string &from, const std::string &to) {
    return posix::copyTree(from, to);
}

posix::FileError Files::removeTree(const std::string &path) { return posix::removeTree(path); }

posix::FileError Files::removeFile(const std::string &path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT ? posix::FileError{} : posix::FileError{errno, path};
}

posix::FileError Files::changeOwner(const std::string &path, uid_t owner, gid_t group) {
    return posix::changeOwner(path, owner, group);
}

posix::FileError Files::syncFileSystem(const std::string &path) { return posix::syncFileSystem(path); }
posix::FileError Files::syncDirectory(const std::string &path) { return posix::syncDirectory(path); }

} // namespace tx::installer
