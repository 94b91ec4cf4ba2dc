// SPDX-License-Identifier: MIT
// When the menu entry is written and removed: at an application's start, its move and its removal.
#include "base/queues.h"
#include "mover/menuentry.h"
#include "mover/removal.h"
#include "os/packageowner.h"
#include "tests/mover/appmovertest.h"
#include "tests/mover/menuentrytest.h"

#include <QDir>

#include <cerrno>

using namespace Qt::StringLiterals;
using tx::MenuEntryOutcome;
using tx::test::AppMover;
using tx::test::readFile;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

/// The start of an application, with the steps that it takes.
class MenuEntryAtStart : public tx::test::MenuEntryTest {
protected:
    tx::test::RecordingTasks tasks;
    int steps = 0;

    MenuEntryAtStart() {
        files.observer = [this](const QString &, const QString &p) {
            if (p.startsWith(data))
                ++steps;
        };
    }
    int start() {
        steps = 0;
        tx::refreshMenuEntry();
        EXPECT_TRUE(tx::waitForBackground(std::chrono::minutes(1)));
        return steps;
    }
};

TEST_F(MenuEntryAtStart, FirstStartWritesTheEntryAndLaterOnesDoNothing) {
    makeWhole();
    EXPECT_GT(start(), 0);
    EXPECT_EQ(value(u"Name"_s), u"Host 1042"_s);
    EXPECT_EQ(start(), 0) << "one comparison";
    // A user who has removed the entry does not get it back before the next version.
    ASSERT_TRUE(QFile::remove(entryPath));
    EXPECT_EQ(start(), 0);
    makeWhole(u"1043"_s);
    EXPECT_GT(start(), 0);
    EXPECT_EQ(value(u"Name"_s), u"Host 1043"_s) << "after an update";
    const QString first = bundlePath;
    bundlePath = applications + u"/Renamed.app"_s;
    ASSERT_TRUE(QDir().rename(first, bundlePath));
    tx::setMainBundle(TXBundle(bundlePath));
    EXPECT_GT(start(), 0);
    EXPECT_EQ(value(tx::entryBundleKey), bundlePath) << "the user has moved it";
}

TEST_F(MenuEntryAtStart, FailureIsTriedAgainAndAForeignEntryIsNot) {
    makeWhole();
    files.failOn(u"replaceFile"_s, EACCES, u".desktop"_s);
    EXPECT_GT(start(), 0);
    EXPECT_TRUE(entry().isEmpty());
    EXPECT_GT(start(), 0) << "tried again";
    files.failOn(u"replaceFile"_s, 0, u"no such path"_s);
    EXPECT_GT(start(), 0);
    EXPECT_FALSE(entry().isEmpty());
    makeWhole(u"2"_s);
    writeFile(entryPath, "[Desktop Entry]\nType=Application\nName=Theirs\n");
    EXPECT_GT(start(), 0);
    EXPECT_EQ(start(), 0);
}

TEST_F(MenuEntryAtStart, ApplicationThatOptsOutLosesItsEntry) {
    makeWhole();
    EXPECT_GT(start(), 0);
    EXPECT_FALSE(entry().isEmpty());
    make({{u"TXUpdateDesktopEntry"_s, false}}, u"2"_s);
    EXPECT_GT(start(), 0);
    EXPECT_TRUE(entry().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(icon(u"scalable"_s)));
    EXPECT_EQ(start(), 0);
}

TEST_F(MenuEntryAtStart, ApplicationElsewhereTouchesNothing) {
    makeWhole();
    EXPECT_GT(start(), 0);
    const QByteArray before = entry();
    bundlePath = path(u"build/My Host.app"_s);
    makeWhole(u"9999"_s);
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(entry(), before);
}

TEST_F(MenuEntryAtStart, UpdaterDoesItWhenItIsMade) {
    makeWhole();
    (void)TXUpdater::sharedUpdater();
    EXPECT_TRUE(waitUntil([this] { return !entry().isEmpty(); }));
}

/// An application that is removed, with the packages of the test's own database.
class Removal : public tx::test::MenuEntryTest {
protected:
    tx::test::RecordingTasks tasks;
    const tx::PackageDatabases before = tx::packageDatabases();

    Removal() {
        tx::packageDatabases() = {path(u"dpkg"_s), {}, {}};
        makeWhole();
        EXPECT_EQ(tx::putMenuEntry(TXBundle(bundlePath)), MenuEntryOutcome::Current);
    }
    ~Removal() override { tx::packageDatabases() = before; }
    void expectRefused(const char *reason) {
        const auto tree = tx::test::treeOf(bundlePath);
        const auto removed = tx::removeApplication(bundlePath);
        ASSERT_FALSE(removed);
        EXPECT_THAT(removed.error().toString().toStdString(), testing::HasSubstr(reason));
        EXPECT_EQ(tx::test::treeOf(bundlePath), tree);
        EXPECT_FALSE(entry().isEmpty());
    }
};

TEST_F(Removal, ApplicationOfAPackageIsRefused) {
    writeFile(path(u"dpkg/info/thepackage.list"_s), (bundlePath + u"/Contents/Info.plist\n"_s).toUtf8());
    writeFile(path(u"dpkg/status"_s), "");
    expectRefused("It belongs to the package thepackage of dpkg.");
    // Where the database cannot be read, it may belong to one.
    QFile::remove(path(u"dpkg/info/thepackage.list"_s));
    QDir().mkpath(path(u"dpkg/info/thepackage.list"_s));
    expectRefused("It could not be determined whether it belongs to a package: ");
    QDir(path(u"dpkg"_s)).removeRecursively();
    EXPECT_TRUE(tx::removeApplication(bundlePath));
}

TEST_F(Removal, EntryStaysIfTheTrashFails) {
    tx::test::RecordingWorkspace workspace;
    workspace.trashFails = true;
    expectRefused("could not be moved to the Trash.");
    workspace.trashFails = false;
    workspace.running = QStringList{bundlePath + u"/Contents/Linux/Program"_s};
    expectRefused("It is running.");
}

TEST_F(Removal, FailureOfTheEntryCanBeRepeated) {
    files.failOn(u"remove"_s, EROFS, u".desktop"_s);
    const auto failed = tx::removeApplication(bundlePath);
    ASSERT_FALSE(failed);
    EXPECT_THAT(failed.error().toString().toStdString(), testing::HasSubstr("The menu entry of "));
    EXPECT_FALSE(QFileInfo::exists(bundlePath));
    files.failOn(u"remove"_s, 0, u"no such path"_s);
    const auto removed = tx::removeApplication(bundlePath);
    ASSERT_TRUE(removed);
    EXPECT_TRUE(removed->trash.isNull());
    EXPECT_EQ(removed->files, QStringList{entryPath});
}

TEST_F(AppMover, MoveWritesTheEntryOfTheNewPlace) {
    const QString data = path(u"home/share"_s);
    tx::services().folders.data = [&] { return data; };
    useUserFolder();
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(exits, QList<int>{0});
    const QByteArray entry = readFile(data + u"/applications/org.example.Host.desktop"_s);
    EXPECT_EQ(tx::entryValue(entry, tx::entryBundleKey), user + u"/Host.app"_s);
    EXPECT_EQ(tx::entryValue(entry, u"TryExec"_s), user + u"/Host.app/Contents/Linux/Program"_s);
    // The moved application starts without writing it again.
    tx::setMainBundle(TXBundle(user + u"/Host.app"_s));
    ASSERT_TRUE(QFile::remove(data + u"/applications/org.example.Host.desktop"_s));
    tx::refreshMenuEntry();
    EXPECT_TRUE(tx::waitForBackground(std::chrono::minutes(1)));
    EXPECT_TRUE(tx::test::namesIn(data + u"/applications"_s).isEmpty());
}

TEST_F(AppMover, MoveIsDoneWhenTheEntryFails) {
    const QString data = path(u"home/share"_s);
    tx::services().folders.data = [&] { return data; };
    useUserFolder();
    files.failOn(u"replaceFile"_s, EACCES, u".desktop"_s);
    EXPECT_EQ(move(), 1);
    EXPECT_EQ(exits, QList<int>{0});
    EXPECT_TRUE(alerts.isEmpty());
    EXPECT_TRUE(QFileInfo::exists(user + u"/Host.app/Contents/Info.plist"_s));
    EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr("The menu entry of "));
    EXPECT_TRUE(programs().join(u'\n').contains(user + u"/Host.app"_s)) << "it is opened again";
}

} // namespace
