// SPDX-License-Identifier: MIT
#include "platform/volumes.h"

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <sys/statvfs.h>

using namespace Qt::StringLiterals;

namespace tx {

std::optional<VolumeInfo> volumeInfo(const QString &path) {
    const QStorageInfo volume(path);
    if (!volume.isValid())
        return std::nullopt;
    VolumeInfo info;
    info.rootPath = volume.rootPath();
    info.device = QFile::decodeName(volume.device());
    info.isReadOnly = volume.isReadOnly();
    info.isRemovable = deviceIsLoop(info.device) || deviceIsRemovable(info.device, u"/sys"_s);
    info.isDiskImage = deviceIsLoop(info.device) && info.isReadOnly;
    return info;
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
