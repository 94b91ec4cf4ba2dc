// SPDX-License-Identifier: MIT
#include "installer/applicationmove.h"

#include "posix/bundlecontents.h"
#include "posix/interrupted.h"

#include <cerrno>
#include <cstring>

namespace tx::installer {

namespace {

std::string describe(const posix::FileError &error) {
    return error.path + ": " + std::strerror(error.number);
}

/// Replaces `destination` with the complete copy at `staged`. Afterwards the old content is at `staged` or at
/// `backup`.
posix::FileError takeName(const std::string &staged, const std::string &destination,
                          const std::string &backup, Files &files) {
    if (!posix::entryExists(destination))
        return files.rename(staged, destination);
    posix::FileError error = files.exchange(staged, destination);
    if (error.number != EINVAL && error.number != ENOSYS && error.number != EOPNOTSUPP)
        return error;
    // A file system that cannot exchange two entries. After an interruption, the next opening repairs it.
    error = files.rename(destination, backup);
    if (error)
        return error;
    error = files.rename(staged, destination);
    if (error && files.rename(backup, destination))
        return {error.number, destination + " (what was there is at " + backup + ")"};
    return error;
}

std::string lockProblem(const posix::FileError &error, const std::string &application) {
    return error.number == EWOULDBLOCK ? "an installation of " + application + " is running"
                                       : "cannot lock " + describe(error);
}

} // namespace

std::string moveApplication(const std::string &application, const std::string &folder, uid_t owner,
                            Files &files) {
    const std::string destination = folder + '/' + posix::lastComponentOf(application);
    if (destination == application)
        return application + " is in " + folder + " already";
    const std::string staged = movedPathFor(destination);
    const std::string backup = backupPathFor(destination);
    posix::Descriptor lock;
    if (const posix::FileError error = files.lock(lockPathFor(destination), lock))
        return lockProblem(error, destination);
    // First restore what an interrupted installation left. Otherwise the next opening of the moved
    // application would replace it with the old one.
    bool putBack = false;
    if (const posix::FileError error = undoInterruption(destination, files, putBack)) {
        (void)files.removeFile(lockPathFor(destination));
        return "an interrupted installation of " + destination + " cannot be undone: " + describe(error);
    }
    // A user who may not write to the folder around their application installs within it, under a lock there.
    posix::Descriptor contentsLock;
    const std::string contentsLockPath = lockPathFor(posix::contentsOf(destination));
    if (posix::isDirectory(destination)) {
        if (const posix::FileError error = files.lock(contentsLockPath, contentsLock)) {
            (void)files.removeFile(lockPathFor(destination));
            return lockProblem(error, destination);
        }
    }
    posix::FileError error = files.removeTree(staged);
    if (!error && posix::entryExists(destination))
        error = files.removeTree(backup);
    const bool clear = !error;
    if (!error)
        error = files.copyTree(application, staged, {.onlyFrom = owner, .keepsOwners = true});
    if (!error)
        error = files.syncFileSystem(staged);
    std::string problem;
    bool isReplaced = false;
    if (error) {
        problem = "the application cannot be copied: " + describe(error);
        if (clear)
            (void)files.removeTree(staged);
    } else if ((error = takeName(staged, destination, backup, files))) {
        problem = "the copy at " + staged + " cannot take its name: " + describe(error);
    } else if ((error = files.syncDirectory(folder))) {
        isReplaced = true;
        // Keeps what was there before: until its new name is on disk, a power failure may lose the copy.
        problem = "the move cannot be written to disk: " + describe(error);
    } else {
        isReplaced = true;
        // The leftover is harmless, and the next move removes it.
        (void)files.removeTree(staged);
        (void)files.removeTree(backup);
    }
    // With the application that was replaced its lock has gone; what is there now may be under another one.
    if (contentsLock.isOpen() && !isReplaced)
        (void)files.removeFile(contentsLockPath);
    (void)files.removeFile(lockPathFor(destination));
    return problem;
}

} // namespace tx::installer
