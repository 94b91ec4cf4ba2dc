// SPDX-License-Identifier: MIT
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/tools/txupdate/txupdatetest.h"

#include <QProcess>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::ProcessResult;
using tx::test::TxUpdate;

namespace {

class TxUpdateInstall : public TxUpdate {
protected:
    const QString app = path(u"Applications/Host.app"_s);
    const QString ran = path(u"ran"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};

    QByteArray newArchive() {
        tx::test::makeBundle(path(u"staging/Host.app"_s),
                             {.build = u"1043"_s,
                              .displayVersion = u"2.1"_s,
                              .program = "#!/bin/sh\necho new > '" + ran.toUtf8() + "'\n"});
        tx::test::makeArchive(path(u"new.tgz"_s), tx::test::ArchiveKind::Tgz,
                              tx::test::entriesOf(path(u"staging/Host.app"_s)));
        return tx::test::readFile(path(u"new.tgz"_s));
    }
    /// A feed with one build, and the answer to the request for its archive.
    static void offer(FeedServer &server, const QByteArray &build, const HttpReply &archive) {
        server.expect("GET", "/f",
                      HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"" + build +
                                      "\",\"downloadURL\":\"" + server.url(u"/new.tgz"_s).toUtf8() +
                                      "\"}]}"));
        server.expect("GET", "/new.tgz", archive);
    }
    QStringList words(const FeedServer &server) const {
        return {u"update"_s, u"--app"_s, app, u"--feed"_s, server.url(u"/f"_s)};
    }
};

TEST_F(TxUpdateInstall, UpdateReplacesTheApplicationAndWaitsForIt) {
    FeedServer server;
    offer(server, "1043", HttpReply::file(newArchive()));
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.endsWith("Installed.\n")) << result.output.constData();
    EXPECT_FALSE(result.output.contains('\r')) << "no progress bar without a terminal";
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"1043"_s) << "done when the command ends";
    EXPECT_EQ(tx::test::namesIn(path(u"Applications"_s)), QStringList{u"Host.app"_s});
    EXPECT_TRUE(tx::test::waitUntil([this] { return tx::test::readFile(ran) == "new\n"; }));
}

TEST_F(TxUpdateInstall, ArchiveWithAnotherBuildIsNotInstalled) {
    FeedServer server;
    offer(server, "1044", HttpReply::file(newArchive()));
    const QString build = TXBundle(app).infoString(u"CFBundleVersion"_s);
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        result.errors.toStdString(),
        testing::HasSubstr("The update was announced as build 1044, but the downloaded application is "
                           "build 1043. Build " +
                           build.toStdString() + " is installed."));
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), build);
}

TEST_F(TxUpdateInstall, TerminalGetsAProgressBar) {
    FeedServer server;
    offer(server, "1043", HttpReply::file(newArchive()));
    // `script` gives the command a terminal.
    QProcess process;
    process.start(
        u"script"_s,
        {u"-qec"_s, tx::test::programsFolder() + u"/txupdate "_s + words(server).join(u' '), u"/dev/null"_s});
    ASSERT_TRUE(process.waitForFinished(60000));
    const QByteArray output = process.readAllStandardOutput();
    EXPECT_TRUE(output.contains("\r  [########################################] 100 % of 0.0 MB"))
        << output.constData();
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"1043"_s);
}

/// What the installer's end means, in words.
TEST_F(TxUpdateInstall, EachEndOfTheInstallerIsToldAsItIs) {
    struct Case {
        QByteArray end; ///< of a stand-in for the installer
        const char *words;
    };
    // As the real one, it does its work when the host has ended.
    const QByteArray ready = "echo ready; while kill -0 $1 2> /dev/null; do :; done; ";
    const QByteArray archive = newArchive();
    // From a folder of its own, where it finds no resources but those that are named.
    const QString alone = path(u"bin/txupdate"_s);
    const QString resources = path(u"resources"_s);
    QDir().mkpath(resources);
    QDir().mkpath(path(u"bin"_s));
    ASSERT_TRUE(QFile::copy(tx::test::programsFolder() + u"/txupdate"_s, alone));
    for (const QString &name : tx::test::namesIn(tx::test::resourcesFolder())) {
        if (name != u"TXUpdateInstaller.app")
            QFile::link(tx::test::resourcesFolder() + u'/' + name, resources + u'/' + name);
    }
    for (const Case &c :
         {Case{"exit 64", "started wrongly; the application is unchanged (installer status 64)"},
          Case{"exit 73", "beside the application, which is unchanged (installer status 73)"},
          Case{"exit 74", "exchanged for the new version and is unchanged (installer status 74)"},
          Case{"exit 75", "it is unchanged, try again later (installer status 75)"},
          Case{"exit 76", "the new version is installed, but it could not be started (installer status 76)"},
          Case{"exit 77", "could not change its rights and ended; the application is complete"},
          Case{"exit 78", "does not run with an administrator's rights; the application is unchanged"},
          Case{"exit 1", "ended before it was done; the application is complete"},
          Case{"kill -9 $$", "ended before it was done; the application is complete"},
          Case{"echo the lock is held; exit 75", "the lock is held"}}) {
        SCOPED_TRACE(c.end.constData());
        tx::test::writeFile(resources + u"/TXUpdateInstaller.app/Contents/MacOS/TXUpdateInstaller"_s,
                            "#!/bin/sh\n" + (c.end.startsWith("echo") ? QByteArray() : ready) + c.end + '\n',
                            QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QDir(path(u"home/Downloads"_s)).removeRecursively();
        FeedServer server;
        server.always([&](const tx::test::HttpRequest &request) {
            return request.path() == "/new.tgz"
                       ? HttpReply::file(archive)
                       : HttpReply::json(
                             "{\"release\":[{\"type\":\"build\",\"build\":\"1043\",\"downloadURL\":\"" +
                             server.url(u"/new.tgz"_s).toUtf8() + "\"}]}");
        });
        qputenv("TXUPDATE_RESOURCES", resources.toUtf8());
        const ProcessResult result = runWhileServing(words(server), alone);
        qunsetenv("TXUPDATE_RESOURCES");
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT((result.output + result.errors).toStdString(), testing::HasSubstr(c.words));
        EXPECT_FALSE(result.output.contains("Installed."));
    }
}

TEST_F(TxUpdateInstall, InstalledButNotStartedIsNotCalledUnchanged) {
    // A program of this machine by its header, of which the rest is missing.
    tx::test::makeBundle(path(u"staging/Host.app"_s), {.build = u"1043"_s, .program = [] {
                                                           QFile self(u"/proc/self/exe"_s);
                                                           EXPECT_TRUE(self.open(QIODevice::ReadOnly));
                                                           return self.read(64);
                                                       }()});
    tx::test::makeArchive(path(u"new.tgz"_s), tx::test::ArchiveKind::Tgz,
                          tx::test::entriesOf(path(u"staging/Host.app"_s)));
    FeedServer server;
    offer(server, "1043", HttpReply::file(tx::test::readFile(path(u"new.tgz"_s))));
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(),
                testing::HasSubstr("the new version is installed, but it could not be started"));
    EXPECT_THAT(result.errors.toStdString(), testing::Not(testing::HasSubstr("unchanged")));
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"1043"_s);
}

TEST_F(TxUpdateInstall, BuildWithoutItsExecuteBitIsNotInstalled) {
    (void)newArchive();
    ASSERT_TRUE(QFile::setPermissions(path(u"staging/Host.app/Contents/Linux/Program"_s),
                                      QFile::ReadOwner | QFile::WriteOwner));
    tx::test::makeArchive(path(u"new.tgz"_s), tx::test::ArchiveKind::Tgz,
                          tx::test::entriesOf(path(u"staging/Host.app"_s)));
    FeedServer server;
    offer(server, "1043", HttpReply::file(tx::test::readFile(path(u"new.tgz"_s))));
    const QStringList before = tx::test::treeOf(app);
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("it lacks its execute bit"));
    EXPECT_EQ(tx::test::treeOf(app), before);
    EXPECT_TRUE(tx::test::namesIn(path(u"home/Downloads"_s)).isEmpty()) << "it is of no use there either";
}

TEST_F(TxUpdateInstall, DownloadErrorLeavesTheApplication) {
    FeedServer server;
    offer(server, "1043", HttpReply{.status = 404});
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("The update could not be downloaded."));
    EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"1042"_s);
}

TEST_F(TxUpdateInstall, RunningApplicationIsNotReplaced) {
    tx::test::makeBundle(
        app, {.program = "#!/bin/sh\necho up > '" + ran.toUtf8() + "'\nwhile :; do sleep 1000; done\n"});
    QProcess running;
    running.start(app + u"/Contents/Linux/Program"_s, {});
    ASSERT_TRUE(tx::test::waitUntil([this] { return tx::test::readFile(ran) == "up\n"; }));
    FeedServer server;
    const ProcessResult result = runWhileServing(words(server));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("is running: quit it first"));
    running.kill();
    running.waitForFinished();
}

} // namespace
