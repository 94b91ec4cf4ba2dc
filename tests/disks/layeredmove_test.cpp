// SPDX-License-Identifier: MIT
// A move over an application in a lower layer of a real overlay, whose folders cannot be renamed.
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/disks/ownmounts.h"
#include "tests/support/builders.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdateAppMover.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::treeOf;

namespace {

class LayeredMove : public tx::test::OwnMounts {
protected:
    const QString source = path(u"home/Loads/Host.app"_s);
    QString top = disk + u"/lower"_s; ///< the merged layers where the system permits them

    LayeredMove() {
        const bool hasDisk = mountAt(disk, "tmpfs", "size=64m");
        for (const char *part : {"/lower", "/upper", "/work", "/merged"})
            QDir().mkpath(disk + QLatin1StringView(part));
        tx::test::makeBundle(disk + u"/lower/Host.app"_s, {.build = u"7"_s});
        const QByteArray root = QFile::encodeName(disk);
        const QByteArray options =
            "lowerdir=" + root + "/lower,upperdir=" + root + "/upper,workdir=" + root + "/work";
        if (hasDisk && (mountsLayers(options) || mountsLayers(options + ",userxattr")))
            top = disk + u"/merged"_s;
        tx::test::makeBundle(source, {.build = u"8"_s});
        tx::services().folders.userApplications = [] { return u"/nonexistent"_s; };
        tx::services().folders.localApplications = [this] { return top; };
        tx::services().exitProcess = [](int) {};
        tx::services().presentAlert = [](const tx::Alert &alert) {
            ADD_FAILURE() << alert.informative.toStdString();
            return 0;
        };
        tx::setMainBundle(TXBundle(source));
        tx::resetHost();
    }
};

TEST_F(LayeredMove, ReplacesAnApplicationOfALowerLayer) {
    const QString destination = top + u"/Host.app"_s;
    const QStringList content = treeOf(source);
    const QStringList older = treeOf(destination);
    const bool isLayered = top.endsWith(u"/merged"_s);
    QStringList steps;
    tx::test::FaultFileSystem files;
    files.observer = [&](const QString &operation, const QString &where) {
        steps << operation + u' ' + where.section(u'/', -1);
    };
    const tx::test::RecordingTasks tasks;
    EXPECT_EQ(TXUpdateAppMover::moveToApplicationsFolderWithoutAsking(), 1);
    EXPECT_EQ(treeOf(destination), content);
    EXPECT_EQ(namesIn(top).filter(u"Host"_s), QStringList{u"Host.app"_s});
    EXPECT_EQ(steps.contains(u"rename .Host.app.txupdate-whole"_s), isLayered)
        << "a whole copy stands by while the folder of the lower layer is removed";
    QStringList trashed;
    for (const QString &trash : {top + u"/.Trash-%1"_s.arg(getuid()), disk + u"/.Trash-%1"_s.arg(getuid()),
                                 path(u"home/.local/share/Trash"_s)}) {
        for (const QString &name : namesIn(trash + u"/files"_s))
            trashed << treeOf(trash + u"/files/"_s + name);
    }
    for (const QString &entry : older)
        EXPECT_TRUE(trashed.contains(entry)) << entry.toStdString();
}

} // namespace
