// SPDX-License-Identifier: MIT
// What is at the destination of a move, and what is moved: killed and failing at every change, locked, left
// by an interrupted installation, or a package's.
#include "os/packageowner.h"
#include "posix/interrupted.h"
#include "tests/mover/moverfaulttest.h"

#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::MoverFault;
using tx::test::namesIn;
using tx::test::treeOf;
using tx::test::writeFile;

namespace {

/// What the file system of the destination can do.
enum class Road { Exchanges, Renames, Copies };

/// Fails like that file system until the old application has left the destination. On an overlay, the folder
/// that replaces it lies in the upper layer, which has no such limit.
class RoadFiles final : public tx::test::FaultFileSystem {
public:
    RoadFiles(Road road, const QString &destination)
        : m_road(road)
        , m_destination(destination)
        , m_first(fileNumber(destination)) {}
    TXError exchange(const QString &a, const QString &b) override {
        if (m_road == Road::Exchanges || (m_road == Road::Copies && !isLower(b)))
            return FaultFileSystem::exchange(a, b);
        if (observer)
            observer(u"exchange"_s, b);
        const int number = decide ? decide(u"exchange"_s, b) : 0;
        const int lacks = m_road == Road::Copies ? EXDEV : EINVAL;
        return TXError(TXPOSIXErrorDomain, number != 0 ? number : lacks);
    }
    TXError rename(const QString &from, const QString &to) override {
        if (m_road == Road::Copies && isLower(from))
            return TXError(TXPOSIXErrorDomain, EXDEV);
        return FaultFileSystem::rename(from, to);
    }
    TXError remove(const QString &path) override {
        // In two steps, as a tree goes entry by entry.
        if (isLower(path)) {
            if (TXError error = FaultFileSystem::remove(path + u"/Contents/Info.plist"_s))
                return error;
        }
        return FaultFileSystem::remove(path);
    }

private:
    static ino_t fileNumber(const QString &path) {
        struct stat info {};
        return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
    }
    bool isLower(const QString &path) const { return path == m_destination && fileNumber(path) == m_first; }

    const Road m_road;
    const QString m_destination;
    const ino_t m_first;
};

bool changesDisk(const QString &operation) {
    static const QStringList changes{
        u"copy"_s, u"move"_s,       u"rename"_s, u"exchange"_s,        u"remove"_s,
        u"sync"_s, u"syncFolder"_s, u"create"_s, u"lockApplication"_s, u"undoInterruption"_s};
    return changes.contains(operation);
}

class MoverLosses : public MoverFault, public testing::WithParamInterface<Road> {
protected:
    QStringList content;
    QStringList older;
    const QString old = local + u"/.Host.app.txupdate-old"_s;

    void prepare() {
        for (const QString &folder : {source, local, trash})
            QDir(folder).removeRecursively();
        QDir().mkpath(local);
        makeSource();
        tx::test::makeBundle(destination(), {.build = u"7"_s});
        content = treeOf(source);
        older = treeOf(destination());
        exits = 0;
    }
    /// Whether a complete copy of what was at the destination is where it can be found.
    bool hasOlder() const {
        QStringList places{destination(), old, local + u"/.Host.app.txupdate-whole"_s};
        for (const QString &name : namesIn(trash + u"/files"_s))
            places << trash + u"/files/"_s + name;
        return std::any_of(places.begin(), places.end(),
                           [this](const QString &place) { return treeOf(place) == older; });
    }
    /// What the next opening of the destination finds, or this one on a file system that can exchange
    /// entries.
    void expectComplete() const {
        ASSERT_TRUE(QFileInfo::exists(destination()));
        const QStringList tree = treeOf(destination());
        ASSERT_TRUE(tree == older || tree == content) << tree.join(u'\n').toStdString();
        ASSERT_TRUE(hasOlder());
    }
    void expectNextMoveComesThrough() {
        ASSERT_EQ(move(), 1) << told.toStdString();
        EXPECT_EQ(treeOf(destination()), content);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_FALSE(QFileInfo::exists(source));
        EXPECT_TRUE(hasOlder()) << "in the Trash";
    }
};

TEST_P(MoverLosses, KilledAtAnyChangeItLosesNothingAndTheNextMoveCleansUp) {
    int gaps = 0;
    int at = 1;
    for (;; ++at) {
        prepare();
        // Each case is a process of its own, so that no thread is lost in the child.
        const pid_t child = fork();
        if (child == 0) {
            RoadFiles road(GetParam(), destination());
            int changes = 0;
            road.observer = [&](const QString &operation, const QString &) {
                if (changesDisk(operation) && ++changes == at)
                    raise(SIGKILL);
            };
            (void)move();
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (WIFEXITED(status))
            break;
        SCOPED_TRACE(at);
        ASSERT_EQ(treeOf(source), content);
        const QStringList tree = treeOf(destination());
        if (tree != older && tree != content) {
            ++gaps;
            ASSERT_TRUE(tx::restoreBackup(destination().toStdString())) << "as the next opening does";
        }
        expectComplete();
        expectNextMoveComesThrough();
        if (HasFailure())
            return;
    }
    EXPECT_GT(at, 12)
        << "lock, undo, clear, copy, sync, the name of the old one, exchange, sync, Trash, Trash";
    EXPECT_EQ(gaps > 0, GetParam() != Road::Exchanges) << gaps;
    EXPECT_EQ(treeOf(destination()), content) << "the last one was not killed";
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    EXPECT_FALSE(QFileInfo::exists(source));
}

TEST_P(MoverLosses, FailingAtAnyChangeItLosesNothingAndTheNextMoveComesThrough) {
    int failures = 0;
    for (int at = 1;; ++at) {
        prepare();
        int changes = 0;
        QString failed;
        int result = 0;
        {
            RoadFiles road(GetParam(), destination());
            road.decide = [&](const QString &operation, const QString &where) {
                if (!changesDisk(operation) || ++changes != at)
                    return 0;
                failed = operation + u' ' + where;
                return EIO;
            };
            result = move();
        }
        if (failed.isEmpty()) {
            EXPECT_EQ(result, 1);
            break;
        }
        SCOPED_TRACE(failed.toStdString());
        expectComplete();
        if (result == 1) {
            EXPECT_EQ(treeOf(destination()), content);
        } else {
            ++failures;
            EXPECT_EQ(result, -1);
            EXPECT_EQ(exits, 0);
            EXPECT_EQ(treeOf(source), content);
            EXPECT_FALSE(told.isEmpty());
            EXPECT_TRUE(started.isEmpty()) << "nothing waits for the end of this process";
            expectNextMoveComesThrough();
        }
        if (HasFailure())
            return;
    }
    EXPECT_GT(failures, 8);
}

TEST_P(MoverLosses, IsOnDiskBeforeAnythingIsRemoved) {
    prepare();
    QStringList steps;
    RoadFiles road(GetParam(), destination());
    road.observer = [&](const QString &operation, const QString &where) {
        if (changesDisk(operation))
            steps << operation + u' ' + where.section(u'/', -1);
    };
    EXPECT_EQ(move(), 1);
    const bool copies = GetParam() == Road::Copies;
    QStringList expected{u"lockApplication Host.app"_s,
                         u"undoInterruption Host.app"_s,
                         u"remove .Host.app.txupdate-move"_s,
                         u"copy .Host.app.txupdate-move"_s,
                         u"sync .Host.app.txupdate-move"_s,
                         u"rename .Host.app.txupdate-old"_s,
                         u"exchange Host.app"_s};
    if (GetParam() != Road::Exchanges)
        expected << u"rename .Host.app.txupdate-move"_s;
    if (GetParam() == Road::Renames)
        expected << u"rename .Host.app.txupdate-old"_s << u"rename Host.app"_s;
    if (copies)
        expected << u"copy .Host.app.txupdate-old"_s << u"sync .Host.app.txupdate-old"_s
                 << u"rename .Host.app.txupdate-whole"_s << u"syncFolder opt"_s << u"remove Info.plist"_s
                 << u"remove Host.app"_s << u"rename Host.app"_s << u"syncFolder opt"_s
                 << u"rename .Host.app.txupdate-old"_s;
    expected << u"syncFolder opt"_s << u"create Host.app.trashinfo"_s << u"move Host.app"_s
             << u"create Host.app.2.trashinfo"_s << u"move Host.app.2"_s;
    EXPECT_EQ(steps, expected) << steps.join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Roads, MoverLosses, testing::Values(Road::Exchanges, Road::Renames, Road::Copies),
                         [](const testing::TestParamInfo<Road> &each) {
                             return std::string(each.param == Road::Exchanges ? "exchanging"
                                                : each.param == Road::Renames ? "renaming"
                                                                              : "copying");
                         });

TEST_F(MoverFault, WhatWasReplacedIsInTheTrashUnderItsNameAndCanBeRestored) {
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList older = treeOf(destination());
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(treeOf(trash + u"/files/Host.app"_s), older);
    EXPECT_THAT(tx::test::readFile(trash + u"/info/Host.app.trashinfo"_s).toStdString(),
                testing::HasSubstr("Path=" + destination().toStdString() + "\n"));
}

TEST_F(MoverFault, FolderThatCannotBeSyncedKeepsWhatWasMovedAndWhatWasReplaced) {
    const QStringList content = treeOf(source);
    files.failOn(u"syncFolder"_s, EIO);
    for (const bool replaces : {false, true}) {
        QDir(destination()).removeRecursively();
        if (replaces)
            tx::test::makeBundle(destination(), {.build = u"7"_s});
        const QStringList older = treeOf(destination());
        EXPECT_EQ(move(), -1);
        EXPECT_EQ(treeOf(source), content);
        EXPECT_EQ(treeOf(destination()), content) << "it may be on the disk";
        EXPECT_TRUE(started.isEmpty()) << "neither a relaunch nor the end of an image";
        EXPECT_EQ(exits, 0);
        EXPECT_FALSE(QFileInfo::exists(trash));
        if (replaces) {
            EXPECT_EQ(treeOf(local + u"/.Host.app.txupdate-old"_s), older);
        }
        EXPECT_EQ(
            told,
            u"The application was copied to %1, but the disk may not hold the copy: %2. The application "
            "that you opened is still where it was. Check the disk, then try again."_s.arg(
                destination(), QString::fromLocal8Bit(strerror(EIO))));
    }
    EXPECT_TRUE(logLines().contains(
        u"ERROR -- What was at %1 is at %2/.Host.app.txupdate-old"_s.arg(destination(), local)))
        << logLines().join(u'\n').toStdString();
    // The disk is well again.
    files.failOn(u"syncFolder"_s, EIO, u"nowhere"_s);
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
    EXPECT_EQ(namesIn(trash + u"/files"_s).size(), 3) << "the replaced one, the first copy, the source";
}

TEST_F(MoverFault, WaitsForNoInstallationAndTouchesNothingMeanwhile) {
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList content = treeOf(source);
    const std::string lockPath = tx::lockPathFor(destination().toStdString());
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t installation = fork();
    if (installation == 0) {
        tx::posix::Descriptor lock;
        const bool isHeld = !tx::posix::takeLock(lockPath, lock);
        (void)!write(ready[1], isHeld ? "1" : "0", 1);
        pause();
        _exit(0);
    }
    char isHeld = 0;
    ASSERT_EQ(read(ready[0], &isHeld, 1), 1);
    EXPECT_EQ(isHeld, '1');
    const QStringList before = treeOf(local);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(local), before);
    EXPECT_EQ(treeOf(source), content);
    EXPECT_FALSE(QFileInfo::exists(trash));
    EXPECT_TRUE(started.isEmpty());
    EXPECT_EQ(told, destination() + u" is being updated or moved by another program. Wait until that has "
                                    "finished, then try again."_s);
    kill(installation, SIGKILL);
    ASSERT_EQ(waitpid(installation, nullptr, 0), installation);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(move(), 1) << "the lock ends with its process, its file is no obstacle";
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
}

TEST_F(MoverFault, HoldsTheLockUntilTheMoveIsDoneAndNotForTheOpening) {
    const std::string lockPath = tx::lockPathFor(destination().toStdString());
    QStringList locked;
    files.observer = [&](const QString &operation, const QString &where) {
        tx::posix::Descriptor other;
        if (changesDisk(operation) && operation != u"lockApplication" && QFileInfo::exists(source) &&
            tx::posix::entryExists(lockPath) && tx::posix::takeLock(lockPath, other).number == EWOULDBLOCK)
            locked << operation + u' ' + where.section(u'/', -1);
    };
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    EXPECT_EQ(move(), 1);
    EXPECT_THAT(locked,
                testing::IsSupersetOf({u"undoInterruption Host.app"_s, u"copy .Host.app.txupdate-move"_s,
                                       u"exchange Host.app"_s, u"syncFolder opt"_s,
                                       u"create Host.app.trashinfo"_s, u"move Host.app"_s}));
    EXPECT_EQ(locked.filter(u"move Host.app"_s).size(), 1) << "the old copy goes when the lock is free";
    EXPECT_FALSE(tx::posix::entryExists(lockPath));
}

TEST_F(MoverFault, LockThatCannotBeHadMeansHandsOff) {
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList content = treeOf(source);
    const QString lockPath = QString::fromStdString(tx::lockPathFor(destination().toStdString()));
    const auto expectRefused = [&](int number) {
        const QStringList before = treeOf(local);
        EXPECT_EQ(move(), -1);
        EXPECT_EQ(treeOf(local), before);
        EXPECT_EQ(treeOf(source), content);
        EXPECT_EQ(told.section(u" Check"_s, 0, 0),
                  u"It could not be determined whether %1 is being updated: %2."_s.arg(
                      destination(), QString::fromLocal8Bit(strerror(number))));
    };
    ASSERT_TRUE(QFile::link(path(u"elsewhere"_s), lockPath));
    expectRefused(ELOOP);
    EXPECT_TRUE(told.endsWith(u"Check the permissions of %1, then try again."_s.arg(lockPath)))
        << told.toStdString();
    EXPECT_FALSE(QFileInfo::exists(path(u"elsewhere"_s))) << "links are not followed";
    QFile::remove(lockPath);
    ASSERT_TRUE(QDir().mkdir(lockPath));
    expectRefused(EISDIR);
    QDir().rmdir(lockPath);
    files.failOn(u"lockApplication"_s, EACCES);
    expectRefused(EACCES);
    // A full disk is reported as such, not as missing permissions.
    files.failOn(u"lockApplication"_s, ENOSPC);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(told,
              u"The application could not be copied to the folder %1: %2. It is still where it was."_s.arg(
                  local, QString::fromLocal8Bit(strerror(ENOSPC))));
}

TEST_F(MoverFault, WhatAnInterruptedInstallationLeftDoesNotComeBackOverTheMovedOne) {
    const std::string app = destination().toStdString();
    const struct {
        std::string leftover;
        bool stands; ///< beside what is at the destination
    } cases[] = {
        {tx::wholePathFor(app), true}, {tx::wholePathFor(app), false}, {tx::backupPathFor(app), false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.leftover + (c.stands ? " beside a half one" : ""));
        for (const QString &folder : {source, local, trash})
            QDir(folder).removeRecursively();
        makeSource();
        const QStringList content = treeOf(source);
        const QString leftover = QString::fromStdString(c.leftover);
        tx::test::makeBundle(leftover, {.build = u"5"_s});
        const QStringList older = treeOf(leftover);
        if (c.stands)
            tx::test::makeBundle(destination(), {.build = u"half of it"_s});
        EXPECT_EQ(move(), 1) << told.toStdString();
        EXPECT_FALSE(tx::restoreBackup(app)) << "as the relaunch does";
        EXPECT_EQ(treeOf(destination()), content);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_EQ(treeOf(trash + u"/files/Host.app"_s), older) << "as what was there";
    }
}

TEST_F(MoverFault, InterruptedInstallationThatCannotBeUndoneIsLeftAlone) {
    const QString whole = QString::fromStdString(tx::wholePathFor(destination().toStdString()));
    tx::test::makeBundle(whole, {.build = u"5"_s});
    tx::test::makeBundle(destination(), {.build = u"half of it"_s});
    files.failOn(u"undoInterruption"_s, EACCES);
    const QStringList before = treeOf(local);
    const QStringList content = treeOf(source);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(local), before) << "and the lock is free again";
    EXPECT_EQ(treeOf(source), content);
    EXPECT_EQ(told,
              u"An interrupted update of %1 could not be undone: %2. Check the permissions of the folder "
              "%3, then try again."_s.arg(destination(), QString::fromLocal8Bit(strerror(EACCES)), local));
}

TEST_F(MoverFault, WhatAKilledMoveHadReplacedGoesToTheTrashAndIsNotDeleted) {
    const QString old = QString::fromStdString(tx::backupPathFor(destination().toStdString()));
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    tx::test::makeBundle(old, {.build = u"6"_s});
    const QStringList replaced = treeOf(old);
    const QStringList content = treeOf(source);
    const QStringList before = treeOf(local);
    // Without the Trash it stays.
    files.failOn(u"move"_s, EIO, u"/Trash/files"_s);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(local), before);
    EXPECT_EQ(told.section(u": "_s, 0, 0),
              u"What is at %1 already could not be moved to the Trash"_s.arg(old));
    files.failOn(u"move"_s, EIO, u"nowhere"_s);
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(treeOf(trash + u"/files/Host.app"_s), replaced);
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
}

TEST_F(MoverFault, WhatTheTrashHoldsCompleteDoesNotComeBackIncomplete) {
    // As between file systems: the copy in the Trash is made, and the original goes only in part.
    class HalfRemoved final : public tx::test::FaultFileSystem {
    public:
        TXError move(const QString &from, const QString &to) override {
            if (!from.contains(u".txupdate-old"_s))
                return FaultFileSystem::move(from, to);
            if (TXError error = copy(from, to))
                return error;
            (void)remove(from + u"/Contents/Linux"_s);
            return TXError(TXPOSIXErrorDomain, EACCES, u"Cannot remove"_s);
        }
    };
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList older = treeOf(destination());
    const QStringList content = treeOf(source);
    {
        const HalfRemoved halfRemoved;
        EXPECT_EQ(move(), 1) << told.toStdString();
    }
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_EQ(treeOf(trash + u"/files/Host.app"_s), older);
    EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(tx::backupPathFor(destination().toStdString()))))
        << "an opening would put it into the place of an application that is gone";
    makeSource();
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
}

TEST_F(MoverFault, TrashThatFailsBringsBackWhatWasReplacedOnEveryFileSystem) {
    const QStringList content = treeOf(source);
    for (const Road road : {Road::Exchanges, Road::Renames, Road::Copies}) {
        SCOPED_TRACE(static_cast<int>(road));
        QDir(destination()).removeRecursively();
        tx::test::makeBundle(destination(), {.build = u"7"_s});
        const QStringList before = treeOf(local);
        RoadFiles roadFiles(road, destination());
        roadFiles.failOn(u"create"_s, EIO, u".trashinfo"_s);
        EXPECT_EQ(move(), -1);
        EXPECT_EQ(treeOf(local), before);
        EXPECT_EQ(treeOf(source), content);
        EXPECT_EQ(told.section(u": "_s, 0, 0),
                  u"What is at %1 already could not be moved to the Trash"_s.arg(destination()));
    }
}

/// A package manager of the test's own that may own what is at the destination.
class MoverFaultPackage : public MoverFault {
protected:
    const tx::PackageDatabases before = tx::packageDatabases();
    const QString list = path(u"dpkg/info/notes.list"_s);

    MoverFaultPackage() { tx::packageDatabases() = {path(u"dpkg"_s), {}, {}}; }
    ~MoverFaultPackage() override { tx::packageDatabases() = before; }
};

TEST_F(MoverFaultPackage, ApplicationOfAPackageIsNotReplaced) {
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    const QStringList older = treeOf(destination());
    const QStringList content = treeOf(source);
    const auto expectRefused = [&](const char *reason) {
        EXPECT_EQ(move(), -1);
        EXPECT_EQ(treeOf(destination()), older);
        EXPECT_EQ(treeOf(source), content);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr(reason));
    };
    tx::test::writeFile(list, destination().toUtf8() + "/Contents/Info.plist\n");
    expectRefused("Host.app is not replaced: it belongs to the package notes of dpkg");
    EXPECT_EQ(told.toStdString(),
              destination().toStdString() +
                  " is not replaced, because it belongs to the package notes of dpkg. Use that "
                  "application, or remove the package first.");
    QFile::remove(list);
    QDir().mkpath(list);
    expectRefused("whether it belongs to a package could not be determined");
    EXPECT_THAT(told.toStdString(), testing::HasSubstr("notes.list"));
    // A link to such an application is no more than a link.
    QDir().rmdir(list);
    tx::test::writeFile(list, path(u"usr/Host.app\n"_s).toUtf8());
    ASSERT_TRUE(QDir(destination()).removeRecursively());
    tx::test::makeBundle(path(u"usr/Host.app"_s), {.build = u"7"_s});
    ASSERT_TRUE(QFile::link(path(u"usr/Host.app"_s), destination()));
    EXPECT_EQ(move(), 1) << logLines().join(u'\n').toStdString();
    EXPECT_TRUE(QFileInfo::exists(path(u"usr/Host.app/Contents"_s)));
    EXPECT_EQ(treeOf(destination()), content);
}

TEST_F(MoverFaultPackage, LinkOfAPackageIsNotReplaced) {
    const QStringList content = treeOf(source);
    tx::test::makeBundle(path(u"usr/Host.app"_s), {.build = u"7"_s});
    writeFile(list, (u"/.\n"_s + destination() + u'\n').toUtf8());
    for (const QString &target : {path(u"usr/Host.app"_s), u"/nonexistent"_s}) {
        ASSERT_TRUE(QFile::link(target, destination()));
        EXPECT_EQ(move(), -1) << target.toStdString();
        EXPECT_EQ(QFile::symLinkTarget(destination()), target);
        EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s});
        EXPECT_EQ(treeOf(source), content);
        EXPECT_FALSE(QFileInfo::exists(trash));
        EXPECT_THAT(told.toStdString(),
                    testing::HasSubstr("because it belongs to the package notes of dpkg"));
        QFile::remove(destination());
    }
    writeFile(destination(), "a file");
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(tx::test::readFile(destination()), QByteArray("a file"));
    QFile::remove(destination());
    EXPECT_EQ(move(), 1) << "nothing is there that could be replaced";
}

} // namespace
