// SPDX-License-Identifier: MIT
#include "os/volumes.h"

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

VolumeInfo described(const QString &rootPath, const QString &device, bool isReadOnly) {
    VolumeInfo info{.rootPath = rootPath, .device = device, .isReadOnly = isReadOnly};
    info.isRemovable = deviceIsLoop(device) || deviceIsRemovable(device, u"/sys"_s);
    info.isDiskImage = deviceIsLoop(device) && isReadOnly;
    return info;
}

} // namespace

std::optional<VolumeInfo> volumeInfo(const QString &path) {
    const QStorageInfo volume(path);
    // If a path is not in the mount table, Qt returns no device. Since version 6.8 it returns the path itself
    // as root path.
    if (!volume.isValid() || volume.device().isEmpty())
        return volumeByFileSystem(path);
    return described(volume.rootPath(), QFile::decodeName(volume.device()), volume.isReadOnly());
}

std::optional<VolumeInfo> volumeByFileSystem(const QString &path) {
    struct stat entry {};
    if (stat(QFile::encodeName(path).constData(), &entry) != 0)
        return std::nullopt;
    QString rootPath = QFileInfo(path).canonicalFilePath();
    while (rootPath != u"/") {
        const QString above = QFileInfo(rootPath).path();
        struct stat folder {};
        if (stat(QFile::encodeName(above).constData(), &folder) != 0 || folder.st_dev != entry.st_dev)
            break;
        rootPath = above;
    }
    const QFileInfo device(u"/sys/dev/block/%1:%2"_s.arg(major(entry.st_dev)).arg(minor(entry.st_dev)));
    const QString name = QFileInfo(device.canonicalFilePath()).fileName();
    return described(rootPath, name.isEmpty() ? QString() : u"/dev/"_s + name, mountFlagsAreReadOnly(path));
}

bool deviceIsLoop(const QString &device) { return device.startsWith(u"/dev/loop"_s); }

bool deviceIsRemovable(const QString &device, const QString &sysRoot) {
    const QString folder =
        QFileInfo(sysRoot + u"/class/block/"_s + QFileInfo(device).fileName()).canonicalFilePath();
    if (folder.isEmpty())
        return false;
    for (const QString &candidate : {folder + u"/removable"_s, folder + u"/../removable"_s}) {
        QFile file(candidate);
        if (file.open(QIODevice::ReadOnly))
            return file.readAll().trimmed() == "1";
    }
    return false;
}

bool mountFlagsAreReadOnly(const QString &path) {
    struct statvfs info {};
    return statvfs(QFile::encodeName(path).constData(), &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

} // namespace tx
