// SPDX-License-Identifier: MIT
// The mover with real disks, a real trash and processes that are killed.
#include "core/host_p.h"
#include "platform/mainbundle.h"
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
            ASSERT_EQ(treeOf(path(u"home/.local/share/Trash/files/Host.app"_s)), older) << "change " << at;
    }
    EXPECT_EQ(killed, 4) << "clearing, copying, syncing, renaming";
    EXPECT_EQ(namesIn(local), QStringList{u"Host.app"_s}) << "the last move came through";
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_FALSE(QFileInfo::exists(source));
}

TEST_F(MoverFault, MovesToAnotherFileSystem) {
    QTemporaryDir other(u"/dev/shm/mover-XXXXXX"_s);
    struct stat here {};
    struct stat there {};
    if (!other.isValid() || stat(QFile::encodeName(other.path()).constData(), &there) != 0 ||
        stat(QFile::encodeName(path(u"."_s)).constData(), &here) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "this machine has no second file system to write to";
    local = other.path();
    const QStringList content = treeOf(source);
    tx::test::makeBundle(destination(), {.build = u"7"_s});
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(treeOf(destination()), content);
    EXPECT_EQ(namesIn(local).filter(u"Host"_s), QStringList{u"Host.app"_s});
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
    if (!QDir().mkpath(deep))
        GTEST_SKIP() << "this file system takes no such path";
    local = deep + u'/' + QString(4090 - deep.size(), u'y').left(250);
    (void)QDir().mkpath(local);
    const QStringList content = treeOf(source);
    EXPECT_EQ(move(), -1);
    EXPECT_EQ(treeOf(source), content);
}

} // namespace
