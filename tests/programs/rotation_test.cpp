// SPDX-License-Identifier: MIT
// The example application changes its keys from release to release, with real programs and a real server.
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"
#include "tests/trust/signedreleases.h"

#include <QProcess>

#include <map>

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

/// Key 0 is the first key, 1 the spare, 2 the replacement of the first.
class KeyRotation : public FrameworkTest {
protected:
    const QString app = path(u"Applications/Notes.app"_s);
    const QString launches = path(u"launches"_s);
    const ProcessReaper reaper{app + u"/Contents/Linux/TarvixNotes"_s};
    FeedServer server;
    QJsonArray entries;
    QByteArray feed;
    int64_t serial = QDateTime::currentSecsSinceEpoch() - 1000;
    std::map<QByteArray, QByteArray> archives;

    KeyRotation() {
        qputenv("TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8());
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        server.always([this](const HttpRequest &request) {
            return request.path() == "/feed" ? HttpReply::json(feed)
                                             : HttpReply::file(archives[request.path()]);
        });
    }
    static void make(const QString &bundle, const QString &build, const std::vector<size_t> &own) {
        const ProcessResult made = runProcess(sourcesFolder() + u"/../examples/notes/make-bundle"_s,
                                              {programsFolder() + u"/.."_s, build, build + u".0"_s, bundle});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
        Keys keys;
        for (const size_t number : own)
            keys.push_back(keyText(key(number)));
        addKeys(bundle, keys);
    }
    /// Adds a release whose application has these keys to the feed.
    void release(const QString &build, const std::vector<size_t> &own, const Signers &signers,
                 const QString &maxBuild = {}) {
        make(path(u"staging/Notes.app"_s), build, own);
        const QString name = u"/Notes-"_s + build + u".tar"_s;
        makeArchive(path(u"archive"_s), ArchiveKind::Tar, entriesOf(path(u"staging/Notes.app"_s)));
        const QByteArray archive = readFile(path(u"archive"_s));
        archives[name.toUtf8()] = archive;
        std::vector<std::string> texts;
        for (const size_t signer : signers)
            texts.push_back(signText(
                key(signer), archive.toStdString(),
                tx::trust::archiveComment(
                    {"org.example.TarvixNotes", build.toStdString(), uint64_t(archive.size()), {}})));
        QJsonObject entry = entryFor(build, server.url(name), texts);
        if (!maxBuild.isNull())
            entry.insert(u"maxBuild"_s, maxBuild);
        entries.append(entry);
    }
    void publish(const Signers &signers) {
        feed = signedFeed(feedOf(entries), signers, {"org.example.TarvixNotes", "release", ++serial, 60});
    }
    /// Lets the application update itself, and returns its output.
    ProcessResult update() const {
        QProcess process;
        process.start(app + u"/Contents/Linux/TarvixNotes"_s, {u"update"_s, server.url(u"/feed"_s)});
        EXPECT_TRUE(process.waitForFinished(60000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }
    void expectBecomes(const QString &build) {
        QFile::remove(launches);
        const ProcessResult result = update();
        EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
        EXPECT_TRUE(waitUntil([&] {
            return readFile(launches).contains("build=" + build.toUtf8() + " version=" + build.toUtf8() +
                                               ".0");
        })) << result.output.constData();
        EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), build);
        const QString cache = path(u"home/.cache/TarvixUpdate/org.example.TarvixNotes.TXUpdater"_s);
        EXPECT_TRUE(waitUntil([&] { return namesIn(cache).isEmpty(); })) << "the installer ends last";
    }
    void expectStays(const QString &build, const char *words) {
        const ProcessResult result = update();
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(words));
        EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), build);
    }
};

TEST_F(KeyRotation, OldKeyThenBothThenTheNewOne) {
    make(app, u"1"_s, {0, 1});
    release(u"2"_s, {0, 2}, {0, 2});
    publish({0});
    expectBecomes(u"2"_s);
    release(u"3"_s, {0, 2}, {0, 2});
    publish({0, 2});
    expectBecomes(u"3"_s);
    release(u"4"_s, {2}, {0, 2});
    publish({0, 2});
    expectBecomes(u"4"_s);
    release(u"5"_s, {2}, {2});
    publish({2});
    expectBecomes(u"5"_s);
    release(u"6"_s, {2}, {0});
    publish({0});
    expectStays(u"5"_s, "It is not signed by the publisher of this application.");
}

TEST_F(KeyRotation, HostThatSkippedTheMiddleReleaseGetsThereByTheBridge) {
    make(app, u"1"_s, {0, 1});
    release(u"2"_s, {0, 2}, {0, 2}, u"1"_s); // the intermediate release stays for users who skipped it
    release(u"4"_s, {2}, {2});
    publish({0, 2});
    expectBecomes(u"2"_s);
    expectBecomes(u"4"_s);
}

TEST_F(KeyRotation, SpareKeySignsWhatReplacesALostFirstOne) {
    make(app, u"1"_s, {0, 1});
    release(u"2"_s, {1, 2}, {1});
    publish({1});
    expectBecomes(u"2"_s);
    release(u"3"_s, {1, 2}, {2});
    publish({2});
    expectBecomes(u"3"_s);
}

TEST_F(KeyRotation, ReleaseWithoutKeysIsRefusedByHostsAndByTxupdate) {
    make(app, u"1"_s, {0, 1});
    const std::vector<size_t> releases[] = {{}, {2}};
    for (const std::vector<size_t> &own : releases) {
        entries = {};
        release(u"2"_s, own, {0});
        publish({0});
        expectStays(u"1"_s, "The new version has no keys by which it could be updated in its turn.");
        QProcess process;
        process.start(programsFolder() + u"/txupdate"_s,
                      {u"update"_s, u"--app"_s, app, u"--feed"_s, server.url(u"/feed"_s)});
        ASSERT_TRUE(process.waitForFinished(60000));
        EXPECT_EQ(process.exitCode(), 1);
        EXPECT_THAT(process.readAllStandardError().toStdString(),
                    testing::HasSubstr("so it could never be updated"));
        EXPECT_EQ(TXBundle(app).infoString(u"CFBundleVersion"_s), u"1"_s);
    }
    entries = {};
    release(u"3"_s, {0, 1}, {0});
    publish({0});
    expectBecomes(u"3"_s);
}

} // namespace
