// SPDX-License-Identifier: MIT
// The mover with real disks, a real trash and processes that are killed.
#include "core/host_p.h"
#include "mover/movejob.h"
#include "platform/mainbundle.h"
#include "platform/packageowner.h"
#include "platform/services.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"

#include <TarvixUpdate/TXUpdateAppMover.h>

#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::namesIn;
using tx::test::treeOf;

namespace {

class MoverFault : public tx::test::FrameworkTest {
protected:
    tx::test::FaultFileSystem files;
    const QString source = path(u"home/Loads/Host.app"_s);
    QString local = path(u"opt"_s);
    int exits = 0;

    MoverFault() {
        tx::services().folders.userApplications = [this] { return path(u"home/Apps"_s); };
        tx::services().folders.localApplications = [this] { return local; };
        tx::services().exitProcess = [this](int) { ++exits; };
        tx::services().presentAlert = [](const tx::Alert &) { return 0; };
        QDir().mkpath(local);
        tx::test::makeBundle(source, {.build = u"8"_s});
        for (int i = 0; i < 20; ++i)
            tx::test::writeFile(source + u"/Contents/Resources/%1"_s.arg(i), QByteArray(5000, 'x'));
        tx::setMainBundle(TXBundle(source));
        tx::resetHost();
    }
    /// Moves without starting anything.
    int move() {
        const tx::test::RecordingTasks tasks;
        return TXUpdateAppMover::moveToApplicationsFolderWithoutAsking();
    }
    QString destination() const { return local + u"/Host.app"_s; }
};

TEST_F(MoverFault, KilledAtAnyChangeItLosesNothingAndTheNextMoveCleansUp) {
    const QStringList content = treeOf(source);
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList older = treeOf(destination());
    int killed = 0;
    for (int at = 1;; ++at) {
        if (!QFileInfo::exists(destination()))
            tx::test::makeBundle(destination(), {.build = u"7"_s});
        // Each case is a process of its own, so that no thread is lost in the child.
        const pid_t child = fork();
        if (child == 0) {
            int changes = 0;
            files.observer = [&](const QString &operation, const QString &) {
                const bool changesDisk = operation == u"copy" || operation == u"move" ||
                                         operation == u"remove" || operation == u"sync";
                if (changesDisk && ++changes == at)
                    raise(SIGKILL);
            };
            (void)move();
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status))
            break;
        ++killed;
        ASSERT_EQ(treeOf(source), content) << "change " << at;
        if (QFileInfo::exists(destination()))
            ASSERT_TRUE(treeOf(destination()) == older || treeOf(destination()) == content)
                << "change " << at;
        else // its turn in the Trash, before the copy takes its name
            ASSERT_EQ(treeOf(path(u"home/.local/share/Trash/files/Host.app.2"_s)), older)
                << "change " << at << ", after one whose name was reserved and no more";
    }
    EXPECT_EQ(killed, 6) << "clearing, copying, syncing, trashing, renaming, trashing the old copy";
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s}) << "the last move came through";
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_FALSE(QFileInfo::exists(source));
}

TEST_F(MoverFault, ApplicationOfAPackageIsNotReplaced) {
    const tx::PackageDatabases before = tx::packageDatabases();
    tx::packageDatabases() = {path(u"dpkg"_s), {}, {}};
    const QString list = path(u"dpkg/info/notes.list"_s);
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList older = treeOf(destination());
    const QStringList content = treeOf(source);
    std::string told;
    tx::services().presentAlert = [&](const tx::Alert &alert) {
        told = alert.informative.toStdString();
        return 0;
    };
    const auto expectRefused = [&](const char *reason) {
        EXPECT_EQ(move(), -1);
        EXPECT_EQ(treeOf(destination()), older);
        EXPECT_EQ(treeOf(source), content);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr(reason));
    };
    tx::test::writeFile(list, destination().toUtf8() + "/Contents/Info.plist\n");
    expectRefused("Host.app is not replaced: it belongs to the package notes of dpkg");
    EXPECT_EQ(told, destination().toStdString() +
                        " is not replaced, because it belongs to the package notes of dpkg. Use that "
                        "application, or remove the package first.");
    QFile::remove(list);
    QDir().mkpath(list);
    expectRefused("whether it belongs to a package could not be determined");
    EXPECT_THAT(told, testing::HasSubstr("notes.list"));
    // A link to such an application is no more than a link.
    QDir().rmdir(list);
    tx::test::writeFile(list, path(u"usr/Host.app\n"_s).toUtf8());
    ASSERT_TRUE(QDir(destination()).removeRecursively());
    tx::test::makeBundle(path(u"usr/Host.app"_s), {.build = u"7"_s});
    ASSERT_TRUE(QFile::link(path(u"usr/Host.app"_s), destination()));
    EXPECT_EQ(move(), 1) << logLines().join(u'\n').toStdString();
    EXPECT_TRUE(QFileInfo::exists(path(u"usr/Host.app/Contents"_s)));
    EXPECT_EQ(treeOf(destination()), content);
    tx::packageDatabases() = before;
}

TEST_F(MoverFault, MovesToAnotherFileSystem) {
    QTemporaryDir other(u"/dev/shm/mover-XXXXXX"_s);
    struct stat here {};
    struct stat there {};
    ASSERT_TRUE(other.isValid());
    ASSERT_EQ(stat(QFile::encodeName(other.path()).constData(), &there), 0);
    ASSERT_EQ(stat(QFile::encodeName(path(u"."_s)).constData(), &here), 0);
    ASSERT_NE(here.st_dev, there.st_dev) << "/dev/shm is a file system of its own";
    local = other.path();
    const QStringList content = treeOf(source);
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_EQ(namesIn(local).filter(u"Host"_s), QStringList{u"Host.app"_s});
    // What stood there is in the Trash of its own file system, or, where that takes none, in the home's.
    struct stat trash {};
    const QString mine = u"/dev/shm/.Trash-%1"_s.arg(getuid());
    EXPECT_TRUE(stat(QFile::encodeName(mine).constData(), &trash) == 0 && trash.st_dev == there.st_dev);
    QString found;
    for (const QString &name : namesIn(mine + u"/info"_s)) {
        const QByteArray info = tx::test::readFile(mine + u"/info/"_s + name);
        if (info.contains("Path=" + other.path().section(u'/', -1).toUtf8() + "/Host.app\n"))
            found = name.chopped(qsizetype(qstrlen(".trashinfo")));
    }
    ASSERT_FALSE(found.isEmpty());
    EXPECT_EQ(TXBundle(mine + u"/files/"_s + found).infoString(u"CFBundleVersion"_s), u"7"_s);
    QDir(mine + u"/files/"_s + found).removeRecursively();
    QFile::remove(mine + u"/info/"_s + found + u".trashinfo"_s);
    for (const char *part : {"/files", "/info", ""})
        QDir().rmdir(mine + QLatin1StringView(part));
}

TEST_F(MoverFault, CompleteCopyInTheTrashStaysWhenTheOriginalCannotAllBeRemoved) {
    // As between file systems: the copy is made, and the original goes only in part.
    class HalfRemoved final : public tx::test::FaultFileSystem {
    public:
        TXError move(const QString &from, const QString &to) override {
            if (TXError error = copy(from, to))
                return error;
            (void)remove(from + u"/Contents/Linux"_s);
            return TXError(TXPOSIXErrorDomain, EACCES, u"Cannot remove"_s);
        }
    };
    const QStringList content = treeOf(source);
    const HalfRemoved halfRemoved;
    EXPECT_FALSE(tx::removeItemAtPath(source));
    EXPECT_EQ(treeOf(path(u"home/.local/share/Trash/files/Host.app"_s)), content) << "nothing is lost";
    EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/info"_s)), QStringList{u"Host.app.trashinfo"_s});
}

TEST_F(MoverFault, WhatOthersPutIntoTheTrashMeanwhileStays) {
    const QString trash = path(u"home/.local/share/Trash"_s);
    files.failOn(u"move"_s, EIO, u"/Trash/files"_s);
    files.observer = [trash](const QString &operation, const QString &) {
        if (operation == u"move")
            tx::test::writeFile(trash + u"/files/another's"_s, "x");
    };
    EXPECT_FALSE(tx::removeItemAtPath(source));
    EXPECT_EQ(tx::test::readFile(trash + u"/files/another's"_s), QByteArray("x"));
    EXPECT_FALSE(QFileInfo::exists(trash + u"/info"_s)) << "an empty folder goes";
}

TEST_F(MoverFault, VolumeWithoutATrashIsCopiedIntoTheOneOfTheHome) {
    QTemporaryDir other(u"/dev/shm/mover-XXXXXX"_s);
    ASSERT_TRUE(other.isValid());
    files.failOn(u"createDirectory"_s, EACCES, u"/dev/shm"_s);
    tx::test::makeBundle(other.path() + u"/Old.app"_s, {.build = u"7"_s});
    const QStringList content = treeOf(other.path() + u"/Old.app"_s);
    EXPECT_TRUE(tx::removeItemAtPath(other.path() + u"/Old.app"_s));
    EXPECT_TRUE(namesIn(other.path()).isEmpty());
    EXPECT_EQ(treeOf(path(u"home/.local/share/Trash/files/Old.app"_s)), content);
}

TEST_F(MoverFault, FilesAreSharedOnOneFileSystem) {
    const QByteArray file = QFile::encodeName(source + u"/Contents/Resources/3"_s);
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(file.constData(), &before), 0);
    EXPECT_EQ(move(), 1);
    ASSERT_EQ(stat(QFile::encodeName(destination() + u"/Contents/Resources/3"_s).constData(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino) << "no data was copied";
    EXPECT_TRUE(QFileInfo::exists(path(u"home/.local/share/Trash/files/Host.app/Contents/Resources/3"_s)));
}

TEST_F(MoverFault, SourceThatVanishesWhileItIsCopiedIsAFailure) {
    files.observer = [this](const QString &operation, const QString &) {
        if (operation == u"copy")
            QDir(source).removeRecursively();
    };
    EXPECT_EQ(move(), -1);
    EXPECT_TRUE(namesIn(local).isEmpty());
    EXPECT_EQ(exits, 0);
}

TEST_F(MoverFault, HomeThatIsNotInTheEnvironmentIsNoObstacle) {
    qunsetenv("HOME");
    EXPECT_EQ(move(), 1);
    EXPECT_TRUE(QFileInfo::exists(destination()));
}

TEST_F(MoverFault, TrashIsMadeWhereThereIsNone) {
    ASSERT_FALSE(QFileInfo::exists(path(u"home/.local"_s)));
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/files"_s)), QStringList{u"Host.app"_s});
    EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/info"_s)), QStringList{u"Host.app.trashinfo"_s});
}

TEST_F(MoverFault, TrashThatCannotBeUsedIsAFailureWithoutStrayFolders) {
    for (const QString &obstacle : {u"Trash"_s, u"Trash/files"_s, u"Trash/info"_s}) {
        QDir(path(u"home/.local"_s)).removeRecursively();
        tx::test::writeFile(path(u"home/.local/share/"_s) + obstacle, "in the way");
        tx::test::makeBundle(destination(), {.build = u"7"_s});
        const QStringList home = treeOf(path(u"home"_s));
        EXPECT_EQ(move(), -1) << obstacle.toStdString();
        EXPECT_EQ(TXBundle(destination()).infoString(u"CFBundleVersion"_s), u"7"_s);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_EQ(treeOf(path(u"home"_s)), home) << obstacle.toStdString();
    }
    const struct {
        QString operation, part;
    } failures[] = {{u"create"_s, u".trashinfo"_s}, {u"move"_s, u"/Trash/files"_s}};
    for (const auto &failure : failures) {
        QDir(path(u"home/.local/share/Trash"_s)).removeRecursively();
        const QStringList home = treeOf(path(u"home"_s));
        tx::test::FaultFileSystem failing;
        failing.failOn(failure.operation, EIO, failure.part);
        EXPECT_EQ(move(), -1) << failure.operation.toStdString();
        EXPECT_EQ(TXBundle(destination()).infoString(u"CFBundleVersion"_s), u"7"_s);
        EXPECT_EQ(treeOf(path(u"home"_s)), home) << failure.operation.toStdString();
    }
    EXPECT_EQ(exits, 0);
}

TEST_F(MoverFault, FilesAndLinksAtTheDestinationGoToTheTrash) {
    const QString kept = path(u"kept.app"_s);
    tx::test::makeBundle(kept, {});
    const QStringList content = treeOf(source);
    struct Case {
        const char *what;
        std::function<void()> arrange;
    };
    const auto link = [this](const QString &target) {
        return [this, target] { QFile::link(target, destination()); };
    };
    const Case cases[] = {{"a file", [this] { tx::test::writeFile(destination(), "text"); }},
                          {"a link to an application", link(kept)},
                          {"a link without a target", link(u"/nonexistent"_s)},
                          {"another one, with the same name in the Trash", link(u"/nonexistent"_s)},
                          {"a link to itself", link(destination())}};
    qsizetype trashed = 0;
    for (const Case &c : cases) {
        if (trashed > 0)
            QFile::rename(destination(), source);
        c.arrange();
        EXPECT_EQ(move(), 1) << c.what;
        EXPECT_EQ(treeOf(destination()), content) << c.what;
        trashed += 2; // what stood there, and the old copy
        EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/files"_s)).size(), trashed) << c.what;
        EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/info"_s)).size(), trashed) << c.what;
    }
    EXPECT_TRUE(tx::test::readFile(path(u"home/.local/share/Trash/info/Host.app.2.trashinfo"_s))
                    .contains("Path=" + QFile::encodeName(source) + '\n'));
    EXPECT_TRUE(QFileInfo::exists(kept)) << "links are not followed";
}

TEST_F(MoverFault, WithoutPkexecAnAdministratorsFolderIsAFailure) {
    files.failOn(u"isWritable"_s, EACCES, local);
    qputenv("PATH", QFile::encodeName(path(u"empty"_s)));
    EXPECT_EQ(TXUpdateAppMover::moveToApplicationsFolderWithoutAsking(), -1);
    EXPECT_EQ(logLines().last(), u"ERROR -- Could not copy myself to /Applications with authorization"_s);
    EXPECT_TRUE(QFileInfo::exists(source));
    EXPECT_TRUE(namesIn(local).isEmpty());
}

TEST_F(MoverFault, DestinationWhoseNameIsTooLongIsAFailure) {
    QString deep = path(u"opt"_s);
    while (deep.size() < 3900)
        deep += u'/' + QString(150, u'x');
    ASSERT_TRUE(QDir().mkpath(deep));
    local = deep + u'/' + QString(4090 - deep.size(), u'y').left(250);
    (void)QDir().mkpath(local);
    const QStringList content = treeOf(source);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(source), content);
}

} // namespace
