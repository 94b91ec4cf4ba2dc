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
/// A whole copy of the old application, on a file system that cannot rename folders. As long as it exists,
/// the application at the bundle's path may be incomplete.
[[nodiscard]] std::string wholePathFor(const std::string &bundlePath);
/// The entry that was at the bundle's path before a whole copy was put there. It is only ever removed.
[[nodiscard]] std::string gonePathFor(const std::string &bundlePath);
/// The copy of an application that is moved here, until it takes its name.
[[nodiscard]] std::string movedPathFor(const std::string &bundlePath);
/// The folder in which an installation as root unpacks its verified archive.
[[nodiscard]] std::string verifiedPathFor(const std::string &bundlePath);
/// The lock file that protects changes of a bundle.
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

/// Moves the existing whole copy to the bundle's path, and replaces what is left of the old or new
/// application there.
posix::FileError putWholeBack(const std::string &bundlePath, RepairFiles &files);

/// Restores the old application if nothing is at the bundle's path and a backup exists, or if a whole copy
/// exists. An existing entry at the path is removed only after the whole copy has been moved there; on a file
/// system that cannot rename folders, only after it is known that the copy can be moved. The caller must hold
/// the lock. `putBack` receives whether anything was changed.
posix::FileError undoInterruption(const std::string &bundlePath, RepairFiles &files, bool &putBack);

/// Takes the bundle's lock and does the same. Without the lock, for any reason, nothing is changed. Returns
/// true if the old application was restored.
bool restoreBackup(const std::string &bundlePath);

} // namespace tx
