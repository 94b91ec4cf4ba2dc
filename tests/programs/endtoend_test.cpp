// SPDX-License-Identifier: MIT
// The example application, bundled with the framework, updates itself with everything real.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <QProcess>

#include <csignal>

using namespace Qt::StringLiterals;
using tx::test::ArchiveKind;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::waitUntil;

namespace {

class EndToEnd : public tx::test::FrameworkTest {
protected:
    const QString app = path(u"My Applications/it's \"my\" $Notes.app"_s);
    const QString launches = path(u"launches"_s);
    const tx::test::ProcessReaper reaper{app + u"/Contents/Linux/TarvixNotes"_s};

    EndToEnd() {
        qputenv("TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8());
        // On the terminal, whatever desktop runs the test.
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        makeBundle(app, u"1"_s);
    }
    static void makeBundle(const QString &bundle, const QString &build) {
        const auto made =
            tx::test::runProcess(tx::test::sourcesFolder() + u"/../examples/notes/make-bundle"_s,
                                 {tx::test::programsFolder() + u"/.."_s, build, build + u".0"_s, bundle});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
    }
    QByteArray archiveOfNewBuild(ArchiveKind kind) {
        makeBundle(path(u"staging/New.app"_s), u"2"_s);
        tx::test::makeArchive(path(u"archive"_s), kind, tx::test::entriesOf(path(u"staging/New.app"_s)));
        return tx::test::readFile(path(u"archive"_s));
    }
    QByteArray feed(const FeedServer &server, const QString &archive) const {
        return "{\"release\":[{\"type\":\"build\",\"build\":\"2\",\"version\":\"2.0\",\"downloadURL\":\"" +
               server.url(archive).toUtf8() + "\"}]}";
    }
    tx::test::ProcessResult update(const FeedServer &server) const {
        QProcess process;
        process.start(app + u"/Contents/Linux/TarvixNotes"_s, {u"update"_s, server.url(u"/feed.json"_s)});
        EXPECT_TRUE(process.waitForFinished(60000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }
};

class EndToEndKind : public EndToEnd, public testing::WithParamInterface<ArchiveKind> {};

TEST_P(EndToEndKind, OldBuildIsReplacedAndComesBackAsTheNewOne) {
    const QString archive = u"/Notes"_s + QString::fromLatin1(tx::test::suffixOf(GetParam()));
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json(feed(server, archive)));
    server.expect("GET", archive.toUtf8(), HttpReply::file(archiveOfNewBuild(GetParam())));
    const auto result = update(server);
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    ASSERT_TRUE(waitUntil([this] { return tx::test::readFile(launches).contains("build=2 version=2.0"); }));
    const QByteArray line = tx::test::readFile(launches).split('\n')[1];
    EXPECT_TRUE(line.endsWith(" path=" + app.toUtf8())) << line.constData();
    EXPECT_EQ(tx::test::namesIn(path(u"My Applications"_s)), QStringList{QFileInfo(app).fileName()});
    // The installer takes its own copy away last.
    const QString cache = path(u"home/.cache/TarvixUpdate/org.example.TarvixNotes.TXUpdater"_s);
    EXPECT_TRUE(waitUntil([&] { return tx::test::namesIn(cache).isEmpty(); }))
        << tx::test::namesIn(cache).join(u' ').toStdString();
}

TEST_F(EndToEnd, AppcastLeadsToTheSameUpdate) {
    FeedServer server;
    server.expect("GET", "/feed.json",
                  HttpReply::file("<rss xmlns:sparkle=\"http://e.org/s\"><channel><item><enclosure url=\"" +
                                      server.url(u"/Notes.tgz"_s).toUtf8() +
                                      "\" sparkle:version=\"2\"/></item></channel></rss>",
                                  "application/rss+xml"));
    server.expect("GET", "/Notes.tgz", HttpReply::file(archiveOfNewBuild(ArchiveKind::Tgz)));
    const auto result = update(server);
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_TRUE(waitUntil([this] { return tx::test::readFile(launches).contains("build=2 version=2.0"); }));
}

INSTANTIATE_TEST_SUITE_P(Kinds, EndToEndKind,
                         testing::Values(ArchiveKind::Zip, ArchiveKind::Tgz, ArchiveKind::Tbz,
                                         ArchiveKind::Tar));

TEST_F(EndToEnd, DownloadedApplicationMovesAndComesBackFromItsNewPlace) {
    const QString name = u"it's \"new\" $HOME 100% ä\n.app"_s;
    const QString downloaded = path(u"home/Downloads/"_s + name);
    const QString moved = path(u"home/Applications/"_s + name);
    const tx::test::ProcessReaper movedReaper(moved + u"/Contents/Linux/TarvixNotes"_s);
    makeBundle(downloaded, u"3"_s);
    makeBundle(path(u"home/Applications/Other.app"_s), u"1"_s);
    const QStringList content = tx::test::treeOf(downloaded);
    const auto result = tx::test::runProcess(downloaded + u"/Contents/Linux/TarvixNotes"_s, {u"move"_s});
    EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
    EXPECT_TRUE(waitUntil([&] { return tx::test::readFile(launches).contains("path=" + moved.toUtf8()); }))
        << tx::test::readFile(launches).constData();
    EXPECT_EQ(tx::test::treeOf(moved), content);
    EXPECT_FALSE(QFileInfo::exists(downloaded));
    EXPECT_EQ(tx::test::treeOf(path(u"home/.local/share/Trash/files/"_s + name)), content);
    EXPECT_EQ(tx::test::namesIn(path(u"home/Applications"_s)), (QStringList{u"Other.app"_s, name}));
}

TEST_F(EndToEnd, FailedUpdatesLeaveTheOldBuild) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply{.status = 503});
    EXPECT_EQ(update(server).status, 1);
    server.expect("GET", "/feed.json", HttpReply::json(feed(server, u"/Notes.zip"_s)));
    server.expect("GET", "/Notes.zip", HttpReply::file("damaged"));
    const auto damaged = update(server);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_THAT(damaged.output.toStdString(),
                testing::HasSubstr("Could not find the unarchived application."));
    const auto version = tx::test::runProcess(app + u"/Contents/Linux/TarvixNotes"_s, {u"version"_s});
    EXPECT_EQ(version.output, QByteArray("Tarvix Notes 1.0 (build 1)\n"));
}

} // namespace
