// SPDX-License-Identifier: MIT
// The desktops' common rules: a Trash is a folder with "files" and "info". An entry's info file is created
// first and reserves its name. Qt's own implementation loses the entry, or never returns, if something is in
// the way.
#include "os/linux/trash.h"

#include "base/posixerror.h"
#include "os/filesystem.h"
#include "os/services.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QUrl>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// A folder for trashed entries, created if missing. Created folders are removed again if they are empty,
/// because somebody else may have used them meanwhile.
class Trash {
public:
    /// `topFolder`: the volume's, to which the paths in the info files are relative; null for the home's
    /// Trash.
    Trash(const QString &folder, const QString &topFolder)
        : m_folder(folder)
        , m_topFolder(topFolder) {}
    ~Trash() {
        while (!m_made.isEmpty())
            (void)services().fileSystem->removeEmptyDirectory(m_made.takeLast());
    }
    Q_DISABLE_COPY_MOVE(Trash)

    Result<QString> take(const QString &path, const QString &original) {
        for (const QString &folder : {m_folder, m_folder + u"/files"_s, m_folder + u"/info"_s}) {
            if (const TXError error = makeFolder(folder))
                return error;
        }
        const QString name = original.section(u'/', -1);
        for (int copy = 1;; ++copy) {
            const QString unique = copy == 1 ? name : name + u'.' + QString::number(copy);
            if (services().fileSystem->exists(m_folder + u"/files/"_s + unique))
                continue;
            const QString info = m_folder + u"/info/"_s + unique + u".trashinfo"_s;
            const TXError reserved = services().fileSystem->writeNewFile(info, infoAbout(original));
            if (reserved && reserved.code() == EEXIST)
                continue;
            if (reserved)
                return reserved;
            const QString target = m_folder + u"/files/"_s + unique;
            const TXError error = services().fileSystem->move(path, target);
            if (!error) {
                m_made.clear();
                return target;
            }
            // A complete copy stays, with its info: the original could not be removed, or only in part.
            if (services().fileSystem->exists(target))
                return error.withUserInfo({{u"path"_s, path}, {u"trashed"_s, target}});
            (void)services().fileSystem->remove(info);
            return error;
        }
    }

private:
    TXError makeFolder(const QString &folder) {
        const bool stands = services().fileSystem->exists(folder);
        if (const TXError error = services().fileSystem->createDirectory(folder, true))
            return error;
        if (!stands)
            m_made.append(folder);
        return services().fileSystem->checkPrivateDirectory(folder);
    }
    QByteArray infoAbout(const QString &path) const {
        const QString written = m_topFolder.isNull() ? path : path.mid(m_topFolder.size());
        return "[Trash Info]\nPath=" + QUrl::toPercentEncoding(written, "/") + "\nDeletionDate=" +
               services().now().toLocalTime().toString(u"yyyy-MM-ddThh:mm:ss"_s).toLatin1() + '\n';
    }

    QString m_folder;
    QString m_topFolder;
    QStringList m_made;
};

std::optional<dev_t> deviceOf(const QString &path) {
    struct stat info {};
    if (lstat(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return info.st_dev;
}

/// The Trash of a volume: in the shared folder of an administrator (sticky, not a link), otherwise at the
/// top.
QString trashOfVolume(const QString &top) {
    const QString shared = top + u".Trash"_s;
    const QString user = QString::number(getuid());
    struct stat info {};
    if (lstat(QFile::encodeName(shared).constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
        (info.st_mode & S_ISVTX) != 0)
        return shared + u'/' + user;
    return top + u".Trash-"_s + user;
}

} // namespace

Result<QString> moveToTrash(const QString &entry, const QString &originalEntry) {
    if (!services().fileSystem->exists(entry))
        return posixError(ENOENT, u"Cannot move to the Trash:"_s, entry);
    const QString path = QFileInfo(entry).absoluteFilePath();
    const QString original = QFileInfo(originalEntry).absoluteFilePath();
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!QDir::isAbsolutePath(data))
        return posixError(ENOENT, u"There is no Trash for"_s, path);
    if (const TXError error = services().fileSystem->createDirectory(data, true))
        return error;
    const QString parent = QFileInfo(path).path();
    if (deviceOf(parent) != deviceOf(data)) {
        QString top = QStorageInfo(parent).rootPath();
        if (!top.endsWith(u'/'))
            top += u'/';
        if (path.startsWith(top)) {
            if (Result<QString> trashed = Trash(trashOfVolume(top), top).take(path, original))
                return trashed;
        }
    }
    return Trash(data + u"/Trash"_s, {}).take(path, original);
}

} // namespace tx
