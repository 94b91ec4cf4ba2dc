// SPDX-License-Identifier: MIT
#include "posix/interrupted.h"

#include "posix/bundlecontents.h"
#include "posix/movedname.h"
#include "posix/trustedpath.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tx {

namespace {

std::string besideBundle(const std::string &bundlePath, const char *suffix) {
    const std::string parent = posix::parentOf(bundlePath);
    return (parent == "/" ? parent : parent + '/') + '.' + posix::lastComponentOf(bundlePath) + suffix;
}

/// True only if it is certain that nothing exists at the path.
bool isAbsent(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) != 0 && errno == ENOENT;
}

} // namespace

std::string stagedPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-new"); }
std::string backupPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, backupSuffix); }
std::string wholePathFor(const std::string &bundlePath) { return besideBundle(bundlePath, wholeSuffix); }
std::string gonePathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-gone"); }
std::string movedPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, movedSuffix); }
std::string verifiedPathFor(const std::string &bundlePath) {
    return besideBundle(bundlePath, ".txupdate-verified");
}
std::string lockPathFor(const std::string &bundlePath) { return besideBundle(bundlePath, ".txupdate-lock"); }

bool isOwnBackup(const std::string &path) {
    struct stat backup {};
    struct stat around {};
    const std::string parent = posix::parentOf(path);
    if (lstat(path.c_str(), &backup) != 0 || !S_ISDIR(backup.st_mode) || stat(parent.c_str(), &around) != 0)
        return false;
    // The owner of the parent folder could remove the application anyway. If nobody else may write to that
    // folder, its owner or root has put everything there, even an application of another user.
    const posix::Descriptor folder(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool isOurs = backup.st_uid == geteuid() || backup.st_uid == 0 || backup.st_uid == around.st_uid ||
                        (folder.isOpen() && fstat(folder.get(), &around) == 0 &&
                         posix::writableByOthers(folder.get(), parent, around.st_uid).empty());
    return isOurs && posix::writableByOthers(path, backup.st_uid).empty();
}

posix::FileError RepairFiles::rename(const std::string &from, const std::string &to) {
    return std::rename(from.c_str(), to.c_str()) == 0 ? posix::FileError{} : posix::FileError{errno, from};
}

posix::FileError RepairFiles::removeTree(const std::string &path) { return posix::removeTree(path); }

posix::FileError RepairFiles::syncDirectory(const std::string &path) { return posix::syncDirectory(path); }

posix::FileError putWholeBack(const std::string &bundlePath, RepairFiles &files) {
    const std::string whole = wholePathFor(bundlePath);
    const std::string gone = gonePathFor(bundlePath);
    posix::FileError error = files.rename(whole, bundlePath);
    // Only an entry at that path can be the reason: this process may rename in this folder.
    if (error.number != ENOTEMPTY && error.number != EEXIST)
        return error;
    if (posix::entryExists(gone)) {
        if (posix::FileError removal = files.removeTree(gone))
            return removal;
    }
    error = files.rename(bundlePath, gone);
    if (!error) {
        error = files.rename(whole, bundlePath);
        if (error && files.rename(gone, bundlePath))
            return error; // the next run finds the path empty, and the complete copy
    } else if (error.number == EXDEV) {
        // A folder of a lower layer cannot be renamed.
        error = files.removeTree(bundlePath);
        if (!error)
            error = files.rename(whole, bundlePath);
    }
    if (error)
        return error;
    // Sync first: after a power failure, what is removed here must not be back without the other.
    if (!files.syncDirectory(posix::parentOf(bundlePath)) && posix::entryExists(gone))
        (void)files.removeTree(gone);
    return {};
}

posix::FileError undoInterruption(const std::string &bundlePath, RepairFiles &files, bool &putBack) {
    posix::FileError error;
    putBack = false;
    if (isOwnBackup(wholePathFor(bundlePath)))
        error = putWholeBack(bundlePath, files);
    else if (isAbsent(bundlePath) && isOwnBackup(backupPathFor(bundlePath)))
        error = files.rename(backupPathFor(bundlePath), bundlePath);
    else
        return {};
    putBack = !error;
    return error;
}

bool restoreBackup(const std::string &bundlePath) {
    // An installation that may not write to the parent folder works inside the bundle.
    const std::string contents = posix::contentsOf(bundlePath);
    if (posix::lastComponentOf(bundlePath) != posix::lastComponentOf(contents) && restoreBackup(contents))
        return true;
    if (!isOwnBackup(wholePathFor(bundlePath)) &&
        !(isAbsent(bundlePath) && isOwnBackup(backupPathFor(bundlePath))))
        return false;
    // A running installer holds the lock. It may be another user's, whose lock cannot be opened.
    const std::string lockPath = lockPathFor(bundlePath);
    posix::Descriptor lock;
    if (posix::takeLock(lockPath, lock))
        return false;
    RepairFiles files;
    bool putBack = false;
    (void)undoInterruption(bundlePath, files, putBack);
    unlink(lockPath.c_str());
    return putBack;
}

} // namespace tx
