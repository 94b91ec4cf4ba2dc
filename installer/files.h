// SPDX-License-Identifier: MIT
#pragma once

#include "platform/linux/posixfiles.h"

#include <string>

namespace tx::installer {

/// Every change that the installer makes to the file system, so that a test can make any of them fail, or end
/// the process there.
class Files {
public:
    virtual ~Files() = default;
    virtual posix::FileError rename(const std::string &from, const std::string &to);
    virtual posix::FileError exchange(const std::string &a, const std::string &b);
    /// As root, only what belongs to the owner of the tree is copied.
    virtual posix::FileError copyTree(const std::string &from, const std::string &to);
    virtual posix::FileError makeDirectory(const std::string &path);
    /// Copies only what belongs to `owner`.
    virtual posix::FileError copyTreeOf(uid_t owner, const std::string &from, const std::string &to);
    virtual posix::FileError removeTree(const std::string &path);
    virtual posix::FileError removeFile(const std::string &path);
    virtual posix::FileError changeOwner(const std::string &path, uid_t owner, gid_t group);
    virtual posix::FileError changeMode(const std::string &path, mode_t mode);
    /// Takes the lock file at `path` for this process, made when it is not there; EWOULDBLOCK when another
    /// process has it.
    virtual posix::FileError lock(const std::string &path, posix::Descriptor &lock);
    virtual posix::FileError syncFileSystem(const std::string &path);
    virtual posix::FileError syncDirectory(const std::string &path);
};

} // namespace tx::installer
