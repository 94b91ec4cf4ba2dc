// SPDX-License-Identifier: MIT
// The mover with real disks, a real trash and entries in the way.
#include "tests/mover/moverfaulttest.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::MoverFault;
using tx::test::namesIn;
using tx::test::treeOf;

namespace {

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
    struct stat volumeTrash {};
    const QString mine = u"/dev/shm/.Trash-%1"_s.arg(getuid());
    EXPECT_TRUE(stat(QFile::encodeName(mine).constData(), &volumeTrash) == 0 &&
                volumeTrash.st_dev == there.st_dev);
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
    EXPECT_TRUE(tx::removeItemAtPath(source)) << "an error";
    EXPECT_EQ(treeOf(path(u"home/.local/share/Trash/files/Host.app"_s)), content) << "nothing is lost";
    EXPECT_EQ(namesIn(path(u"home/.local/share/Trash/info"_s)), QStringList{u"Host.app.trashinfo"_s});
}

TEST_F(MoverFault, WhatOthersPutIntoTheTrashMeanwhileStays) {
    files.failOn(u"move"_s, EIO, u"/Trash/files"_s);
    files.observer = [this](const QString &operation, const QString &) {
        if (operation == u"move")
            tx::test::writeFile(trash + u"/files/another's"_s, "x");
    };
    EXPECT_TRUE(tx::removeItemAtPath(source)) << "an error";
    EXPECT_EQ(tx::test::readFile(trash + u"/files/another's"_s), QByteArray("x"));
    EXPECT_FALSE(QFileInfo::exists(trash + u"/info"_s)) << "an empty folder goes";
}

TEST_F(MoverFault, VolumeWithoutATrashIsCopiedIntoTheOneOfTheHome) {
    QTemporaryDir other(u"/dev/shm/mover-XXXXXX"_s);
    ASSERT_TRUE(other.isValid());
    files.failOn(u"createDirectory"_s, EACCES, u"/dev/shm"_s);
    tx::test::makeBundle(other.path() + u"/Old.app"_s, {.build = u"7"_s});
    const QStringList content = treeOf(other.path() + u"/Old.app"_s);
    EXPECT_FALSE(tx::removeItemAtPath(other.path() + u"/Old.app"_s));
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
