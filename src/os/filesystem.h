// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QStringList>

#include <memory>

namespace tx {

/// A file that is being written. Closed by its destructor.
class OutputFile {
public:
    virtual ~OutputFile() = default;
    /// Writes all of `data`, or fails and leaves an unspecified part of it written.
    virtual TXError write(QByteArrayView data) = 0;
    /// Forces what was written to disk.
    virtual TXError sync() = 0;
};

/// A lock between processes, held while the object lives.
class FileLock {
public:
    virtual ~FileLock() = default;
};

/// Every change that the framework makes to the file system, so that a test can make any of them fail.
/// Thread: any. Errors: TXPOSIXErrorDomain with the errno value, the action and the path.
class FileSystem {
public:
    virtual ~FileSystem() = default;

    /// Returns whether there is an entry at `path`. A link counts even if its target does not exist.
    [[nodiscard]] virtual bool exists(const QString &path) const = 0;
    /// True when this process may write to `path`, links followed.
    [[nodiscard]] virtual bool isWritable(const QString &path) const = 0;
    /// Returns whether this user may replace the contents of `bundle` with those of `newBundle` although the
    /// folder above `bundle` is not writable. If `newBundle` is empty, only `bundle` is checked.
    [[nodiscard]] virtual bool contentsCanBeExchanged(const QString &bundle,
                                                      const QString &newBundle) const = 0;
    /// Bytes of a regular file; an error for anything else, links included.
    [[nodiscard]] virtual Result<quint64> fileSize(const QString &path) const = 0;
    /// Names of the entries of a folder, hidden ones included, in no particular order.
    virtual Result<QStringList> list(const QString &path) const = 0;
    virtual Result<QByteArray> readFile(const QString &path) const = 0;

    /// Makes a folder with mode 0700. An existing folder is not an error.
    virtual TXError createDirectory(const QString &path, bool withIntermediates) = 0;
    /// Null when `path` is this user's folder, no link, and nobody else but root can write or replace it.
    virtual TXError checkPrivateDirectory(const QString &path) const = 0;
    /// Null when nobody but this user and root can write or replace the file or folder `path`, links
    /// included.
    virtual TXError checkOwnFile(const QString &path) const = 0;
    /// Removes a file, link or tree without following links.
    virtual TXError remove(const QString &path) = 0;
    /// Removes an empty folder. It is an error if the folder is not empty.
    virtual TXError removeEmptyDirectory(const QString &path) = 0;
    /// Copies a file or tree; `to` must not exist.
    virtual TXError copy(const QString &from, const QString &to) = 0;
    /// As copy(), but files of this user on the same file system are shared with the original, which makes it
    /// a matter of milliseconds: for a tree whose original is about to go.
    virtual TXError linkOrCopy(const QString &from, const QString &to) = 0;
    /// Takes the set-user-ID and set-group-ID bits from all files of a tree. After an error some may be left.
    virtual TXError dropSpecialBits(const QString &path) = 0;
    /// Moves to `to`, which must not exist, across file systems too.
    virtual TXError move(const QString &from, const QString &to) = 0;
    /// Gives an entry another name on its file system, in one step; a file of that name is replaced.
    virtual TXError rename(const QString &from, const QString &to) = 0;
    /// Swaps two entries of any kind in one step. EINVAL, ENOSYS or EOPNOTSUPP: this file system cannot do
    /// that; EXDEV: a folder of a lower layer, which cannot be renamed either. Nothing has changed then.
    virtual TXError exchange(const QString &a, const QString &b) = 0;
    /// Syncs an entry, everything in it and its name to disk.
    virtual TXError sync(const QString &path) = 0;
    /// Forces the names in a folder to disk.
    virtual TXError syncFolder(const QString &path) = 0;
    /// Opens for writing, replacing a file of that name; a link of that name is refused. Mode 0600.
    virtual Result<std::unique_ptr<OutputFile>> create(const QString &path) = 0;
    /// Makes a file with this content and mode 0600. Fails with EEXIST if an entry of that name exists.
    virtual TXError writeNewFile(const QString &path, QByteArrayView content) = 0;
    /// Replaces the file's whole content in one step, synced to disk.
    virtual TXError replaceFile(const QString &path, QByteArrayView content, int mode) = 0;
    /// Removes an extended attribute from the entry itself. A missing attribute is not an error.
    virtual TXError removeExtendedAttribute(const QString &path, const QByteArray &name) = 0;
    /// Waits for the lock at `path` (a file made for it) and takes it.
    virtual Result<std::unique_ptr<FileLock>> lock(const QString &path) = 0;
    /// Like lock(), but fails with EWOULDBLOCK if the lock is held elsewhere, even in this process.
    virtual Result<std::unique_ptr<FileLock>> tryLock(const QString &path) = 0;
    /// Takes the lock that protects changes of the application at `bundlePath`, without waiting. Fails with
    /// EWOULDBLOCK if another process holds it. Whoever does not get the lock, for any reason, must not
    /// change the application. The lock file is removed when the lock is released.
    virtual Result<std::unique_ptr<FileLock>> lockApplication(const QString &bundlePath) = 0;
    /// Restores the old application if an interrupted installation left it next to the bundle's path. It is
    /// not an error if there is none. The caller must hold the application's lock.
    virtual TXError undoInterruption(const QString &bundlePath) = 0;
};

/// The file system of this machine.
FileSystem &nativeFileSystem();

} // namespace tx
