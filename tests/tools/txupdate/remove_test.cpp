// SPDX-License-Identifier: MIT
// txupdate remove.
#include "base/propertylist.h"
#include "mover/desktopentry.h"
#include "mover/menuentry.h"
#include "os/filesystem.h"
#include "os/mainbundle.h"
#include "os/userdefaults.h"
#include "tests/tools/txupdate/txupdatetest.h"

#include <QFileInfo>
#include <QJsonArray>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::readFile;
using tx::test::TxUpdate;
using tx::test::writeFile;

namespace {

/// An application with a menu entry in the home folder of the test.
class RemoveCommand : public TxUpdate {
protected:
    const QString app = path(u"home/Applications/My Host.app"_s);
    const QString data = path(u"home/.local/share"_s);
    const QString entry = data + u"/applications/org.example.Host.desktop"_s;
    const QString trashed = data + u"/Trash/files/My Host.app"_s;

    RemoveCommand() {
        tx::services().folders.data = [this] { return data; };
        makeApp();
    }
    void makeApp(const QByteArray &program = "#!/bin/sh\nexit 0\n") const {
        tx::test::makeBundle(app, {.program = program});
        ASSERT_EQ(tx::putMenuEntry(TXBundle(app)), tx::MenuEntryOutcome::Current);
    }
    void expectRefused(const QStringList &words, const char *reason) {
        const auto before = tx::test::treeOf(app);
        const auto result = run(words);
        EXPECT_EQ(result.status, 1) << result.output.constData();
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr(reason));
        EXPECT_EQ(tx::test::treeOf(app), before);
        EXPECT_TRUE(QFileInfo::exists(entry));
        EXPECT_FALSE(QFileInfo::exists(trashed));
    }
};

TEST_F(RemoveCommand, TakesTheApplicationToTheTrashAndItsEntryAway) {
    const auto tree = tx::test::treeOf(app);
    const auto result = run({u"remove"_s, app});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(QString::fromUtf8(result.output),
              app + u" is in the Trash: "_s + trashed + u"\nremoved "_s + entry + u'\n');
    EXPECT_FALSE(QFileInfo::exists(app));
    EXPECT_EQ(tx::test::treeOf(trashed), tree);
    EXPECT_FALSE(QFileInfo::exists(entry));
    EXPECT_EQ(tx::test::namesIn(path(u"home/Applications"_s)), QStringList()) << "no lock is left";
}

TEST_F(RemoveCommand, JsonNamesWhatIsGone) {
    const auto result = run({u"remove"_s, app, u"--json"_s});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(json(result),
              (QJsonObject{{u"bundle"_s, app}, {u"trash"_s, trashed}, {u"files"_s, QJsonArray{entry}}}));
    const auto failed = run({u"remove"_s, app, u"--json"_s});
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(failed.output.contains("There is nothing at ")) << failed.output.constData();
}

TEST_F(RemoveCommand, EntryOfAnApplicationThatIsGoneIsRemoved) {
    ASSERT_TRUE(QDir(app).removeRecursively());
    const auto result = run({u"remove"_s, app, u"--json"_s});
    EXPECT_EQ(result.status, 0) << result.output.constData();
    EXPECT_TRUE(json(result)[u"trash"_s].isNull());
    EXPECT_FALSE(QFileInfo::exists(entry));
}

TEST_F(RemoveCommand, NextCopyAtTheSamePathGetsAnEntryAgain) {
    tx::setMainBundle(TXBundle(app));
    const QString key = u"TXUpdateMenuEntry"_s;
    ASSERT_FALSE(tx::UserDefaults::standard().setValue(key, u"1042"_s));
    EXPECT_EQ(run({u"remove"_s, app}).status, 0);
    EXPECT_TRUE(tx::UserDefaults::standard().stringValue(key).isNull());
}

TEST_F(RemoveCommand, RunningApplicationIsRefused) {
    const QString ready = path(u"ready"_s);
    makeApp("#!/bin/sh\necho x > '" + ready.toUtf8() + "'\nread line\n");
    const tx::test::ProcessReaper reaper(app + u"/Contents/Linux/Program"_s);
    QProcess process;
    process.start(app + u"/Contents/Linux/Program"_s, {});
    ASSERT_TRUE(tx::test::waitUntil([&] { return QFileInfo::exists(ready); }));
    expectRefused({u"remove"_s, app}, "It is running.");
    process.kill();
    process.waitForFinished();
    // Another program in the bundle.
    tx::test::makeBundle(app, {});
    ASSERT_TRUE(QFile::copy(u"/bin/sleep"_s, app + u"/Contents/Linux/helper"_s));
    process.start(app + u"/Contents/Linux/helper"_s, {u"1000"_s});
    ASSERT_TRUE(process.waitForStarted());
    expectRefused({u"remove"_s, app}, "It is running.");
    process.kill();
    process.waitForFinished();
    EXPECT_EQ(run({u"remove"_s, app}).status, 0);
}

TEST_F(RemoveCommand, ApplicationThatIsBeingUpdatedIsRefused) {
    const auto lock = tx::nativeFileSystem().lockApplication(app);
    ASSERT_TRUE(lock);
    expectRefused({u"remove"_s, app}, "It is being updated or moved by another program.");
}

TEST_F(RemoveCommand, OtherThingsAreRefused) {
    ASSERT_TRUE(QFile::link(app, path(u"link.app"_s)));
    expectRefused({u"remove"_s, path(u"link.app"_s)}, "It is a link to ");
    writeFile(path(u"folder/file"_s), "x");
    expectRefused({u"remove"_s, path(u"folder"_s)}, "it has no Info.plist with a CFBundleIdentifier.");
    expectRefused({u"remove"_s, path(u"nothing.app"_s)}, "no menu entry belongs to it");
    EXPECT_EQ(run({u"remove"_s}).status, 64);
    EXPECT_EQ(run({u"remove"_s, app, u"more"_s}).status, 64);
    if (geteuid() == 0) {
        ASSERT_EQ(lchown(QFile::encodeName(app).constData(), 65534, 65534), 0);
        expectRefused({u"remove"_s, app}, "It belongs to another user.");
    } else {
        // Nobody but root can give an application to another user.
        expectRefused({u"remove"_s, u"/usr"_s}, "it has no Info.plist");
    }
}

TEST_F(RemoveCommand, PathMayLeadThroughALink) {
    ASSERT_TRUE(QFile::link(path(u"home/Applications"_s), path(u"apps"_s)));
    EXPECT_EQ(run({u"remove"_s, path(u"apps/My Host.app/"_s)}).status, 0);
    EXPECT_FALSE(QFileInfo::exists(app) || QFileInfo::exists(entry));
}

} // namespace
