// SPDX-License-Identifier: MIT
#include "os/entrykind.h"

#include "os/directories.h"

#include <QDir>
#include <QFile>

#include <climits>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

EntryKind entryKind(const QString &path) {
    struct stat info {};
    if (lstat(QFile::encodeName(path).constData(), &info) != 0)
        return EntryKind::None;
    if (S_ISDIR(info.st_mode))
        return EntryKind::Directory;
    return S_ISLNK(info.st_mode) ? EntryKind::SymbolicLink : EntryKind::Other;
}

std::optional<QString> symbolicLinkTarget(const QString &path) {
    char target[PATH_MAX];
    const ssize_t length = readlink(QFile::encodeName(path).constData(), target, sizeof target);
    if (length <= 0 || length == static_cast<ssize_t>(sizeof target))
        return std::nullopt;
    return QFile::decodeName(QByteArray(target, length));
}

std::optional<QString> aliasFileTarget(const QString &) { return std::nullopt; }

QString standardizedPath(const QString &path) {
    QString expanded = path;
    if (path.startsWith(u'~')) {
        const qsizetype end = path.indexOf(u'/') < 0 ? path.size() : path.indexOf(u'/');
        const QString user = path.mid(1, end - 1);
        const struct passwd *entry = user.isEmpty() ? nullptr : getpwnam(user.toLocal8Bit().constData());
        if (user.isEmpty())
            expanded = homeDirectory() + path.mid(end);
        else if (entry)
            expanded = QFile::decodeName(entry->pw_dir) + path.mid(end);
    }
    return expanded.isEmpty() ? expanded : QDir::cleanPath(expanded);
}

} // namespace tx
