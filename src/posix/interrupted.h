// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <string>

/// What an installation leaves beside a bundle when it is interrupted, and how it is undone; without Qt,
/// shared by the installer tool and by everything that opens an application. Thread: any.
namespace tx {

/// Names beside a bundle that an installation uses: the new application before the swap and the old one
/// after it, and the old one between two renames on a file system without an atomic exchange.
[[nodiscard]] std::string stagedPathFor(const std::string &bundlePath);
[[nodiscard]] std::string backupPathFor(const std::string &bundlePath);
/// A whole copy of the old application, on a file system whose folders cannot be renamed. While it is there,
/// what stands at the bundle's path may have lost some of its files.
[[nodiscard]] std::string wholePathFor(const std::string &bundlePath);
/// What stood at the bundle's path when a whole copy was put there; it is only removed, never put back.
[[nodiscard]] std::string gonePathFor(const std::string &bundlePath);
/// The copy of an application that is moved here, until it takes its name.
[[nodiscard]] std::string movedPathFor(const std::string &bundlePath);
/// The folder in which an installation as root unpacks an archive that it has verified.
[[nodiscard]] std::string verifiedPathFor(const std::string &bundlePath);
/// The file that whoever changes a bundle, one at a time, holds a lock on.
[[nodiscard]] std::string lockPathFor(const std::string &bundlePath);

/// True for a folder that this user, root or the owner of the folder around it made or put there, and to
/// which nobody but its owner may write: in a folder where everybody may write, another user could have put
/// it there.
[[nodiscard]] bool isOwnBackup(const std::string &path);

/// The changes by which an interrupted installation is undone, so that a test can make any of them fail.
class RepairFiles {
public:
    virtual ~RepairFiles() = default;
    virtual posix::FileError rename(const std::string &from, const std::string &to);
    virtual posix::FileError removeTree(const std::string &path);
    virtual posix::FileError syncDirectory(const std::string &path);
};

/// Puts the whole copy, which is there, into the place of what is left of the application, or of the new one.
posix::FileError putWholeBack(const std::string &bundlePath, RepairFiles &files);

/// Puts the old application back when nothing stands at the bundle's path and a backup does, or a whole copy
/// is there. What stands there is removed only when the whole copy has its place, or, where folders cannot be
/// renamed, when it is known that it may have it. The caller holds the lock. `putBack` says whether anything
/// was done.
posix::FileError undoInterruption(const std::string &bundlePath, RepairFiles &files, bool &putBack);

/// The same under the bundle's lock. Without the lock, whatever the reason, nothing is touched. True when the
/// old application was put back.
bool restoreBackup(const std::string &bundlePath);

} // namespace tx
