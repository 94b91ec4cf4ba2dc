// SPDX-License-Identifier: MIT
#include "base/posixerror.h"
#include "os/filesystem.h"
#include "os/specialfiles.h"
#include "posix/bundlecontents.h"
#include "posix/interrupted.h"
#include "posix/posixfiles.h"
#include "posix/readwrite.h"
#include "posix/trustedpath.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

std::string native(const QString &path) { return QFile::encodeName(path).toStdString(); }

TXError toError(const posix::FileError &error, const QString &action) {
    return error ? posixError(error.number, action, QFile::decodeName(error.path.c_str())) : TXError();
}

TXError writeAll(int fd, QByteArrayView data, const QString &path) {
    const auto size = static_cast<size_t>(data.size());
    return posix::writeAll(fd, data.data(), size) == size ? TXError()
                                                          : posixError(errno, u"Cannot write to"_s, path);
}

class NativeOutputFile final : public OutputFile {
public:
    NativeOutputFile(posix::Descriptor fd, QString path)
        : m_fd(std::move(fd))
        , m_path(std::move(path)) {}
    TXError write(QByteArrayView data) override {
        TXError error = writeAll(m_fd.get(), data, m_path);
        // The disk starts to write while data still arrives, so that little remains for the end.
        constexpr off_t step = 8 << 20;
        m_length += data.size();
        if (m_length - m_begun >= step) {
            (void)sync_file_range(m_fd.get(), m_begun, m_length - m_begun, SYNC_FILE_RANGE_WRITE);
            m_begun = m_length;
        }
        return error;
    }
    TXError sync() override {
        return fdatasync(m_fd.get()) == 0 ? TXError() : posixError(errno, u"Cannot write to"_s, m_path);
    }

private:
    posix::Descriptor m_fd;
    QString m_path;
    off_t m_length = 0;
    off_t m_begun = 0; ///< up to which the disk was told to write
};

class NativeLock final : public FileLock {
public:
    explicit NativeLock(posix::Descriptor fd)
        : m_fd(std::move(fd)) {}

private:
    posix::Descriptor m_fd;
};

/// Removes its file while it still holds the lock, so that nobody else can have taken it.
class NativeApplicationLock final : public FileLock {
public:
    NativeApplicationLock(posix::Descriptor fd, std::string path)
        : m_fd(std::move(fd))
        , m_path(std::move(path)) {}
    ~NativeApplicationLock() override { unlink(m_path.c_str()); }
    Q_DISABLE_COPY_MOVE(NativeApplicationLock)

private:
    posix::Descriptor m_fd;
    std::string m_path;
};

class NativeFileSystem final : public FileSystem {
public:
    bool exists(const QString &path) const override { return posix::entryExists(native(path)); }

    bool isWritable(const QString &path) const override {
        return faccessat(AT_FDCWD, native(path).c_str(), W_OK, AT_EACCESS) == 0;
    }

    bool contentsCanBeExchanged(const QString &bundle, const QString &newBundle) const override {
        return posix::contentsProblem(native(bundle), native(newBundle)).empty();
    }

    Result<quint64> fileSize(const QString &path) const override {
        struct stat info {};
        if (lstat(native(path).c_str(), &info) != 0)
            return posixError(errno, u"Cannot examine"_s, path);
        if (!S_ISREG(info.st_mode))
            return posixError(EINVAL, u"Not a file:"_s, path);
        return static_cast<quint64>(info.st_size);
    }

    Result<QStringList> list(const QString &path) const override {
        const QDir dir(path);
        if (!dir.exists() || !dir.isReadable())
            return posixError(dir.exists() ? EACCES : ENOENT, u"Cannot list"_s, path);
        return dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDir::Unsorted);
    }

    Result<QByteArray> readFile(const QString &path) const override {
        QFile file(path);
        errno = 0;
        if (!file.open(QIODevice::ReadOnly))
            return posixError(errno ? errno : EIO, u"Cannot open"_s, path);
        QByteArray content = file.readAll();
        if (file.error() != QFileDevice::NoError)
            return posixError(EIO, u"Cannot read"_s, path);
        return content;
    }

    TXError createDirectory(const QString &path, bool withIntermediates) override {
        if (mkdir(native(path).c_str(), 0700) == 0)
            return {};
        const int number = errno;
        if (number == EEXIST && QFileInfo(path).isDir())
            return {};
        if (number != ENOENT || !withIntermediates)
            return posixError(number, u"Cannot create the folder"_s, path);
        const QString parent = QFileInfo(path).path();
        if (parent == path)
            return posixError(number, u"Cannot create the folder"_s, path);
        if (TXError error = createDirectory(parent, true))
            return error;
        return createDirectory(path, false);
    }

    TXError checkPrivateDirectory(const QString &path) const override {
        struct stat info {};
        if (lstat(native(path).c_str(), &info) != 0)
            return posixError(errno, u"Cannot examine the folder"_s, path);
        if (!S_ISDIR(info.st_mode))
            return posixError(ENOTDIR,
                              S_ISLNK(info.st_mode) ? u"A link stands in place of the folder"_s
                                                    : u"A file stands in place of the folder"_s,
                              path);
        if (info.st_uid != geteuid())
            return posixError(EPERM, u"Another user owns the folder"_s, path);
        return trusted(path, problemOf(path));
    }

    TXError checkOwnFile(const QString &path) const override {
        struct stat info {};
        if (stat(native(path).c_str(), &info) != 0)
            return posixError(errno, u"Cannot examine"_s, path);
        if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode))
            return posixError(EINVAL, u"Not a file:"_s, path);
        return trusted(path, S_ISDIR(info.st_mode) ? posix::untrustedFolder(native(path)) : problemOf(path));
    }

    TXError remove(const QString &path) override {
        return toError(posix::removeTree(native(path)), u"Cannot remove"_s);
    }

    TXError removeEmptyDirectory(const QString &path) override {
        return rmdir(native(path).c_str()) == 0 ? TXError() : posixError(errno, u"Cannot remove"_s, path);
    }

    TXError copy(const QString &from, const QString &to) override { return makeTree({}, from, to); }

    TXError linkOrCopy(const QString &from, const QString &to) override {
        return makeTree({.linksFiles = true}, from, to);
    }

    TXError dropSpecialBits(const QString &path) override {
        return toError(posix::dropSpecialBits(native(path)), u"Cannot take rights from"_s);
    }

    TXError move(const QString &from, const QString &to) override {
        const std::string source = native(from);
        const std::string target = native(to);
        if (renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
            return {};
        if (errno == EINVAL || errno == ENOSYS) { // a file system without RENAME_NOREPLACE
            if (posix::entryExists(target))
                return posixError(EEXIST, u"Cannot move to"_s, to);
            if (::rename(source.c_str(), target.c_str()) == 0)
                return {};
        }
        if (errno != EXDEV)
            return posixError(errno, u"Cannot move to"_s, to);
        if (TXError error = copy(from, to))
            return error;
        // The original must not be removed from its disk before the copy is on the other one.
        if (TXError error = sync(to)) {
            (void)remove(to);
            return error;
        }
        return remove(from);
    }

    TXError rename(const QString &from, const QString &to) override {
        return ::rename(native(from).c_str(), native(to).c_str()) == 0
                   ? TXError()
                   : posixError(errno, u"Cannot replace"_s, to);
    }

    TXError exchange(const QString &a, const QString &b) override {
        return toError(posix::exchange(native(a), native(b)), u"Cannot replace"_s);
    }

    TXError sync(const QString &path) override {
        posix::FileError error = posix::syncFileSystem(native(path));
        if (!error)
            error = posix::syncDirectory(posix::parentOf(native(path)));
        return toError(error, u"Cannot write to disk"_s);
    }

    TXError syncFolder(const QString &path) override {
        return toError(posix::syncDirectory(native(path)), u"Cannot write to disk"_s);
    }

    Result<std::unique_ptr<OutputFile>> create(const QString &path) override {
        posix::Descriptor fd(
            open(native(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd.isOpen())
            return posixError(errno, u"Cannot create"_s, path);
        return std::unique_ptr<OutputFile>(new NativeOutputFile(std::move(fd), path));
    }

    TXError writeNewFile(const QString &path, QByteArrayView content) override {
        const posix::Descriptor fd(open(native(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!fd.isOpen())
            return posixError(errno, u"Cannot create"_s, path);
        TXError error = writeAll(fd.get(), content, path);
        if (error)
            unlink(native(path).c_str());
        return error;
    }

    TXError replaceFile(const QString &path, QByteArrayView content, int mode) override {
        const std::string target = native(path);
        std::string temporary = target + ".XXXXXX";
        posix::Descriptor fd(mkostemp(temporary.data(), O_CLOEXEC));
        if (!fd.isOpen())
            return posixError(errno, u"Cannot create a file beside"_s, path);
        TXError error = writeAll(fd.get(), content, path);
        if (!error && (fchmod(fd.get(), static_cast<mode_t>(mode)) != 0 || fdatasync(fd.get()) != 0))
            error = posixError(errno, u"Cannot write to"_s, path);
        if (!error && ::rename(temporary.c_str(), target.c_str()) != 0)
            error = posixError(errno, u"Cannot replace"_s, path);
        if (error)
            unlink(temporary.c_str());
        return error;
    }

    TXError removeExtendedAttribute(const QString &path, const QByteArray &name) override {
        if (lremovexattr(native(path).c_str(), name.constData()) == 0 || errno == ENODATA || errno == ENOTSUP)
            return {};
        return posixError(errno, u"Cannot remove an attribute of"_s, path);
    }

    Result<std::unique_ptr<FileLock>> lock(const QString &path) override { return take(path, LOCK_EX); }

    Result<std::unique_ptr<FileLock>> tryLock(const QString &path) override {
        return take(path, LOCK_EX | LOCK_NB);
    }

    Result<std::unique_ptr<FileLock>> lockApplication(const QString &bundlePath) override {
        const std::string path = lockPathFor(native(bundlePath));
        posix::Descriptor fd;
        if (const posix::FileError error = posix::takeLock(path, fd))
            return toError(error, u"Cannot lock"_s);
        return std::unique_ptr<FileLock>(new NativeApplicationLock(std::move(fd), path));
    }

    TXError undoInterruption(const QString &bundlePath) override {
        RepairFiles files;
        bool putBack = false;
        return toError(tx::undoInterruption(native(bundlePath), files, putBack), u"Cannot put back"_s);
    }

private:
    static std::string problemOf(const QString &path) {
        std::string resolved;
        return posix::untrustedPart(native(path), resolved);
    }

    static TXError trusted(const QString &path, const std::string &problem) {
        if (problem.empty())
            return {};
        const QString why = QFile::decodeName(problem.c_str());
        return TXError(TXPOSIXErrorDomain, EPERM,
                       u"%1 is not used: %2. Make it, and the folders above it, writable only by you."_s.arg(
                           path, why),
                       why)
            .withUserInfo({{u"path"_s, path}});
    }

    static Result<std::unique_ptr<FileLock>> take(const QString &path, int operation) {
        posix::Descriptor fd(open(native(path).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!fd.isOpen())
            return posixError(errno, u"Cannot open the lock file"_s, path);
        while (flock(fd.get(), operation) != 0) {
            if (errno != EINTR)
                return posixError(errno, u"Cannot lock"_s, path);
        }
        return std::unique_ptr<FileLock>(new NativeLock(std::move(fd)));
    }

    /// Leaves nothing behind when it fails.
    static TXError makeTree(const posix::CopyRules &rules, const QString &from, const QString &to) {
        const std::string target = native(to);
        const posix::FileError error = posix::copyTree(native(from), target, rules);
        if (error && error.number != EEXIST)
            (void)posix::removeTree(target);
        return toError(error, u"Cannot copy"_s);
    }
};

} // namespace

TXError checkForSpecialFiles(const QString &path) {
    const posix::FileError found = posix::findSpecialFile(native(path));
    if (!found || found.number != EINVAL)
        return toError(found, u"Cannot examine"_s);
    const QString special = QFile::decodeName(found.path.c_str());
    return TXError(TXPOSIXErrorDomain, EINVAL, u"%1 is no file that an application may hold"_s.arg(special))
        .withUserInfo({{u"path"_s, special}});
}

FileSystem &nativeFileSystem() {
    static auto &instance = *new NativeFileSystem; // a thread may outlast static objects
    return instance;
}

} // namespace tx
