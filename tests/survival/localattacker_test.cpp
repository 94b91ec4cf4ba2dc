// SPDX-License-Identifier: MIT
// Another user of the same machine, who may put files, links and locks wherever the file system lets
// everybody.
#include "install/installerclient.h"
#include "installer/installer.h"
#include "model/updatefolder.h"
#include "os/filesystem.h"
#include "os/userdefaults.h"
#include "posix/openbundle.h"
#include "posix/userfolders.h"
#include "tests/support/accesslist.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"

#include <TarvixUpdate/TXUpdate.h>

#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using tx::test::readFile;
using tx::test::waitUntil;
using tx::test::writeFile;

namespace {

constexpr uid_t somebody = 65534;

class LocalAttacker : public tx::test::FrameworkTest {
protected:
    const QString victim = path(u"victim"_s);
    LocalAttacker() { writeFile(victim, "kept"); }
    ~LocalAttacker() override { EXPECT_EQ(readFile(victim), QByteArray("kept")); }

    /// Gives an entry to another user, which only root can; else everybody may write to it, which is as bad.
    static void giveAway(const QString &file) {
        const QByteArray name = QFile::encodeName(file);
        if (geteuid() == 0) {
            ASSERT_EQ(lchown(name.constData(), somebody, somebody), 0);
        } else {
            ASSERT_EQ(chmod(name.constData(), 0777), 0);
        }
    }
    static void linkTo(const QString &target, const QString &place) {
        QDir().mkpath(QFileInfo(place).path());
        QFile::remove(place);
        QDir(place).removeRecursively();
        ASSERT_TRUE(QFile::link(target, place)) << place.toStdString();
    }
    TXError download() const {
        tx::test::FeedServer server;
        server.always([](const tx::test::HttpRequest &) { return tx::test::HttpReply::file("archive"); });
        const auto update = std::make_shared<TXUpdate>();
        update->setVersion(u"5"_s);
        update->setFileURL(QUrl(server.url(u"/App.zip"_s)));
        TXError result;
        bool done = false;
        update->downloadWithProgress(nullptr, [&](const TXError &error) {
            result = error;
            done = true;
        });
        EXPECT_TRUE(waitUntil([&] { return done; }));
        return result;
    }
};

TEST_F(LocalAttacker, CacheFoldersOfOthersAndLinksToThemAreNotUsed) {
    const QString shared = path(u"home/.cache/TarvixUpdate"_s);
    const QString cache = tx::UpdateFolder::ofHost().path();
    ASSERT_TRUE(cache.startsWith(shared));
    ASSERT_FALSE(download());
    giveAway(cache);
    EXPECT_TRUE(download()) << "the folder itself";
    QDir(cache).removeRecursively();
    QDir().mkpath(path(u"elsewhere"_s));
    linkTo(path(u"elsewhere"_s), cache);
    EXPECT_TRUE(download()) << "a link in its place";
    QFile::remove(cache);
    linkTo(victim, cache + u".lock"_s);
    EXPECT_TRUE(download()) << "a link in place of its lock";
    QFile::remove(cache + u".lock"_s);
    EXPECT_FALSE(download());
    // The folder around it.
    QDir(shared).removeRecursively();
    linkTo(path(u"elsewhere"_s), shared);
    std::string why;
    EXPECT_EQ(tx::posix::privateTemporaryFolder(&why), "");
    EXPECT_THAT(why, testing::HasSubstr("is not a folder"));
    QFile::remove(shared);
    QDir().mkpath(shared);
    if (geteuid() == 0) {
        giveAway(shared);
        EXPECT_EQ(tx::posix::privateTemporaryFolder(&why), "");
        EXPECT_THAT(why, testing::HasSubstr("belongs to another user"));
    } else {
        giveAway(shared);
        EXPECT_NE(tx::posix::privateTemporaryFolder(&why), "");
        struct stat info {};
        ASSERT_EQ(stat(QFile::encodeName(shared).constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700U) << "closed again";
    }
    EXPECT_TRUE(tx::test::namesIn(path(u"elsewhere"_s)).isEmpty());
}

TEST_F(LocalAttacker, LinkInPlaceOfTheArchiveIsReplacedNotFollowed) {
    ASSERT_FALSE(download());
    const QString cache = tx::UpdateFolder::ofHost().path();
    for (const QString &name : {u"App - 5.zip"_s, u".txupdate-download"_s}) {
        linkTo(victim, cache + u'/' + name);
        EXPECT_FALSE(download()) << name.toStdString();
        EXPECT_EQ(tx::test::namesIn(cache), QStringList{u"App - 5.zip"_s});
        EXPECT_FALSE(QFileInfo(cache + u"/App - 5.zip"_s).isSymLink());
    }
}

TEST_F(LocalAttacker, SettingsThatOthersCouldHaveWrittenDoNotCount) {
    const QString file = path(u"home/.config/Host.plist"_s);
    ASSERT_FALSE(tx::UserDefaults(file).setValue(u"feed"_s, u"mine"_s));
    EXPECT_EQ(tx::UserDefaults(file).stringValue(u"feed"_s), u"mine"_s);
    giveAway(file);
    EXPECT_TRUE(tx::UserDefaults(file).stringValue(u"feed"_s).isNull());
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("cannot be read and count as empty"));
    EXPECT_FALSE(tx::UserDefaults(file).setValue(u"feed"_s, u"again mine"_s)) << "theirs is set aside";
    EXPECT_EQ(tx::UserDefaults(file).stringValue(u"feed"_s), u"again mine"_s);
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(file).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    EXPECT_EQ(info.st_uid, geteuid());
    // Nor is a link in place of the lock followed.
    linkTo(victim, path(u"home/.config/.Host.plist.lock"_s));
    EXPECT_TRUE(tx::UserDefaults(file).setValue(u"feed"_s, u"other"_s));
    EXPECT_EQ(tx::UserDefaults(file).stringValue(u"feed"_s), u"again mine"_s);
}

TEST_F(LocalAttacker, SettingsBehindALinkOfAnotherUserDoNotCount) {
    const QString folder = path(u"home/.config"_s);
    const QString file = folder + u"/Host.plist"_s;
    // What the link leads to is this user's own, and shut to others; the link need not be.
    ASSERT_FALSE(tx::UserDefaults(path(u"mine/Host.plist"_s)).setValue(u"feed"_s, u"theirs"_s));
    linkTo(path(u"mine/Host.plist"_s), file);
    EXPECT_EQ(tx::UserDefaults(file).stringValue(u"feed"_s), u"theirs"_s);
    ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 0777), 0);
    EXPECT_TRUE(tx::UserDefaults(file).stringValue(u"feed"_s).isNull()) << "anybody could have made it";
    EXPECT_TRUE(tx::UserDefaults(file).setValue(u"feed"_s, u"again mine"_s))
        << "it would not be believed afterwards";
    EXPECT_EQ(tx::test::namesIn(folder), QStringList{u"Host.plist"_s}) << "nothing is set aside";
    ASSERT_EQ(chmod(QFile::encodeName(folder).constData(), 01777), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(lchown(QFile::encodeName(file).constData(), somebody, somebody), 0);
        EXPECT_TRUE(tx::UserDefaults(file).stringValue(u"feed"_s).isNull()) << "somebody else made it";
    } else {
        EXPECT_EQ(tx::UserDefaults(file).stringValue(u"feed"_s), u"theirs"_s) << "this user made it";
    }
}

TEST_F(LocalAttacker, SettingsThatAGroupSharesDoNotCount) {
    const QString file = path(u"home/.config/Host.plist"_s);
    ASSERT_FALSE(tx::UserDefaults(file).setValue(u"feed"_s, u"mine"_s));
    // An ordinary user may be in no other group, but can name one in an access list.
    constexpr gid_t games = 60;
    if (chown(QFile::encodeName(file).constData(), static_cast<uid_t>(-1), games) == 0) {
        ASSERT_EQ(chmod(QFile::encodeName(file).constData(), 0664), 0);
    } else {
        using tx::test::AccessEntry;
        ASSERT_TRUE(tx::test::setAccessList(file, {{AccessEntry::OwningGroup, 4},
                                                   {AccessEntry::Group, 6, games},
                                                   {AccessEntry::Mask, 6},
                                                   {AccessEntry::Others, 4}}));
    }
    EXPECT_TRUE(tx::UserDefaults(file).stringValue(u"feed"_s).isNull());
}

TEST_F(LocalAttacker, InstallerIsNotPreparedWhereOthersCouldReplaceIt) {
    TXUpdateInstallerClient *client = TXUpdateInstallerClient::sharedInstance();
    const QString cache = tx::UpdateFolder::ofHost().path();
    QDir().mkpath(cache);
    giveAway(cache);
    TXError error;
    EXPECT_FALSE(client->prepareInstallerHelperTool(&error));
    EXPECT_EQ(error.localizedFailureReason(),
              u"The folder to contain the installer tool could not be created."_s);
    EXPECT_FALSE(QFileInfo::exists(client->executableOfTool()));
    QDir(cache).removeRecursively();
    EXPECT_TRUE(client->prepareInstallerHelperTool(&error)) << error.toString().toStdString();
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(client->environmentRecord()).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U) << "the environment holds secrets";
    // What stands in their place goes, links and all.
    linkTo(victim, client->environmentRecord());
    linkTo(path(u"elsewhere"_s), client->copyOfTool());
    EXPECT_TRUE(client->prepareInstallerHelperTool(&error)) << error.toString().toStdString();
    EXPECT_FALSE(QFileInfo(client->environmentRecord()).isSymLink());
    EXPECT_FALSE(QFileInfo(client->copyOfTool()).isSymLink());
}

TEST_F(LocalAttacker, RecordedEnvironmentOfAnotherUserIsNotUsed) {
    const QString record = path(u"record"_s);
    writeFile(record, QByteArray("LD_PRELOAD=/evil\0", 17), QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Contains("LD_PRELOAD=/evil"));
    ASSERT_TRUE(tx::test::setAccessList(record, {{tx::test::AccessEntry::User, 6, somebody},
                                                 {tx::test::AccessEntry::OwningGroup, 0},
                                                 {tx::test::AccessEntry::Mask, 6},
                                                 {tx::test::AccessEntry::Others, 0}}));
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Not(testing::Contains("LD_PRELOAD=/evil")))
        << "an access list lets others write";
    ASSERT_EQ(chmod(QFile::encodeName(record).constData(), 0600), 0);
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Contains("LD_PRELOAD=/evil"));
    giveAway(record);
    EXPECT_THAT(tx::installer::environmentFor(geteuid(), record.toStdString()),
                testing::Not(testing::Contains("LD_PRELOAD=/evil")));
}

TEST_F(LocalAttacker, CopyTakesNoPipeAndNoFileOfOthers) {
    const QString tree = path(u"New.app"_s);
    tx::test::makeBundle(tree, {});
    // A second name of a file that is not the tree owner's.
    tx::posix::CopyRules rules;
    rules.onlyFrom = geteuid() + 1;
    EXPECT_EQ(tx::posix::copyTree(tree.toStdString(), path(u"copy"_s).toStdString(), rules).number, EPERM);
    QDir(path(u"copy"_s)).removeRecursively();
    rules.onlyFrom = geteuid();
    EXPECT_FALSE(tx::posix::copyTree(tree.toStdString(), path(u"copy"_s).toStdString(), rules));
    // Files that become pipes between the look and the opening: nobody waits for the other end.
    const QByteArray swapped = QFile::encodeName(tree + u"/Contents/swapped"_s);
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
        while (!stop) {
            unlink(swapped.constData());
            (void)mkfifo(swapped.constData(), 0600);
            unlink(swapped.constData());
            close(open(swapped.constData(), O_CREAT | O_WRONLY | O_NONBLOCK, 0600));
        }
    });
    for (int i = 0; i < 500; ++i) {
        (void)tx::posix::copyTree(tree.toStdString(), path(u"copied"_s).toStdString());
        EXPECT_NE(tx::posix::findSpecialFile(path(u"copied"_s).toStdString()).number, EINVAL);
        QDir(path(u"copied"_s)).removeRecursively();
    }
    stop = true;
    swapper.join();
}

TEST_F(LocalAttacker, RemovingFollowsNoLinkThatIsSwappedIn) {
    QDir().mkpath(path(u"outside"_s));
    writeFile(path(u"outside/precious"_s), "kept");
    const QByteArray folder = QFile::encodeName(path(u"tree/sub"_s));
    const QByteArray away = QFile::encodeName(path(u"tree/away"_s));
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
        while (!stop) {
            std::rename(folder.constData(), away.constData());
            (void)!symlink(QFile::encodeName(path(u"outside"_s)).constData(), folder.constData());
            unlink(folder.constData());
            std::rename(away.constData(), folder.constData());
        }
    });
    for (int i = 0; i < 300; ++i) {
        QDir().mkpath(path(u"tree/sub/deep"_s));
        QFile(path(u"tree/sub/deep/file"_s)).open(QIODevice::WriteOnly);
        (void)tx::posix::removeTree(path(u"tree"_s).toStdString());
    }
    stop = true;
    swapper.join();
    EXPECT_EQ(readFile(path(u"outside/precious"_s)), QByteArray("kept"));
}

TEST_F(LocalAttacker, LinkInPlaceOfTheInstalledApplicationIsRefused) {
    tx::test::makeBundle(path(u"real/Host.app"_s), {.build = u"1"_s});
    tx::test::makeBundle(path(u"New.app"_s), {.build = u"2"_s});
    linkTo(path(u"real/Host.app"_s), path(u"place/Host.app"_s));
    tx::installer::Arguments arguments;
    std::string why;
    EXPECT_FALSE(tx::installer::readArguments({"99999", path(u"New.app"_s).toStdString(),
                                               path(u"place/Host.app"_s).toStdString(),
                                               path(u"New.zip"_s).toStdString()},
                                              arguments, why));
    EXPECT_THAT(why, testing::HasSubstr("is no application"));
}

} // namespace
