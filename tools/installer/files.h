// SPDX-License-Identifier: MIT
#pragma once

#include "posix/interrupted.h"
#include "posix/posixfiles.h"

#include <string>
#include <sys/stat.h>

namespace tx::installer {

/// All changes that the installer makes to the file system. Tests replace this class to make any of them
/// fail, or to end the process there. As root, links are never followed, neither at the end of a path nor
/// before.
class Files : public RepairFiles {
public:
    posix::FileError rename(const std::string &from, const std::string &to) override;
    virtual posix::FileError exchange(const std::string &a, const std::string &b);
    virtual posix::FileError copyTree(const std::string &from, const std::string &to,
                                      const posix::CopyRules &rules);
    virtual posix::FileError makeDirectory(const std::string &path);
    posix::FileError removeTree(const std::string &path) override;
    virtual posix::FileError removeFile(const std::string &path);
    virtual posix::FileError changeOwner(const std::string &path, uid_t owner, gid_t group);
    /// Takes special bits from the files of `tree`, as posix::limitSpecialBits does.
    virtual posix::FileError limitSpecialBits(const std::string &tree, const std::string &installed);
    /// Makes the folder readable for everybody and writable only for root.
    virtual posix::FileError openToReaders(const std::string &folder);
    /// Takes the lock file at `path` for this process, made when it is not there; EWOULDBLOCK when another
    /// process has it.
    virtual posix::FileError lock(const std::string &path, posix::Descriptor &lock);
    virtual posix::FileError syncFileSystem(const std::string &path);
    posix::FileError syncDirectory(const std::string &path) override;

    /// Examines the entry at `path` without following a link in the last component. Changes nothing.
    posix::FileError examine(const std::string &path, struct stat &info) const;
};

} // namespace tx::installer
