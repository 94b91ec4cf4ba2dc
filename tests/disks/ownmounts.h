// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/environment.h"

#include <QDir>
#include <QFile>

#include <sys/mount.h>

namespace tx::test {

using namespace Qt::StringLiterals;

/// Mounts file systems below the test's own folder, where the system permits it, and unmounts them after the
/// test.
class OwnMounts : public FrameworkTest {
protected:
    const QString disk = path(u"disk"_s);
    QStringList mounted;

    OwnMounts() { QDir().mkpath(disk); }
    ~OwnMounts() override {
        while (!mounted.isEmpty())
            umount2(QFile::encodeName(mounted.takeLast()).constData(), MNT_DETACH);
    }
    bool mountAt(const QString &place, const char *type, const QByteArray &options) {
        QDir().mkpath(place);
        if (mount(type, QFile::encodeName(place).constData(), type, 0, options.constData()) != 0)
            return false;
        mounted << place;
        return true;
    }
    /// Mounts an overlay in which new folders can be renamed. In a user namespace that needs the option
    /// userxattr; without it the mount succeeds, but renaming fails.
    bool mountsLayers(const QByteArray &options) {
        const QString merged = disk + u"/merged"_s;
        if (!mountAt(merged, "overlay", options))
            return false;
        if (QDir(merged).mkdir(u"a"_s) && QDir(merged).rename(u"a"_s, u"b"_s))
            return QDir(merged).rmdir(u"b"_s);
        QDir(merged).rmdir(u"a"_s);
        umount2(QFile::encodeName(mounted.takeLast()).constData(), MNT_DETACH);
        return false;
    }
};

} // namespace tx::test
