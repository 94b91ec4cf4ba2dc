// SPDX-License-Identifier: MIT
// The last release, built from its commit, meets what is published today.
#include "os/userdefaults.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"
#include "tests/support/processes.h"

#include <TarvixUpdate/TXUpdateSettings.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

#include <csignal>

using namespace Qt::StringLiterals;
using tx::test::ProcessResult;
using tx::test::runProcess;
using tx::test::waitUntil;

namespace {

const QString tree = tx::test::sourcesFolder() + u"/.."_s;
const QString today = tx::test::programsFolder() + u"/.."_s;

class OldRelease : public tx::test::FrameworkTest {
protected:
    /// Built once for all tests; ./run-tests does it before them.
    static void SetUpTestSuite() {
        QProcess process;
        process.start(tree + u"/scripts/old-release"_s, QStringList());
        ASSERT_TRUE(process.waitForFinished(1000000));
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().constData();
        folder = QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    }

    static QString oldTool() { return folder + u"/build/bin/txupdate"_s; }
    static QString todaysTool() { return today + u"/bin/txupdate"_s; }

    static inline QString folder;
};

class UpdateFromOldRelease : public OldRelease {
protected:
    const QString app = path(u"My Applications/Tarvix Notes.app"_s);
    const QString program = app + u"/Contents/Linux/TarvixNotes"_s;
    const QString launches = path(u"launches"_s);
    const QString settings = path(u"home/.config/org.example.TarvixNotes.plist"_s);
    const QString cache = path(u"home/.cache/TarvixUpdate/org.example.TarvixNotes.TXUpdater"_s);
    const tx::test::ProcessReaper reaper{program};
    QProcess server;
    QString site;

    UpdateFromOldRelease() {
        qputenv("TARVIX_NOTES_LAUNCH_LOG", launches.toUtf8());
        // On the terminal, whatever desktop runs the test.
        qunsetenv("DISPLAY");
        qunsetenv("WAYLAND_DISPLAY");
        makeBundle(folder + u"/source"_s, folder + u"/build"_s, u"1"_s, app);
        serve();
    }
    ~UpdateFromOldRelease() override {
        endLaunched();
        server.kill();
        server.waitForFinished();
    }

    /// Puts the example of a tree into a bundle, by that tree's own script.
    static void makeBundle(const QString &source, const QString &build, const QString &version,
                           const QString &bundle) {
        const ProcessResult made = runProcess(source + u"/examples/notes/make-bundle"_s,
                                              {build, version, version + u".0"_s, bundle});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
    }

    /// Serves path("site") with today's server.
    void serve() {
        ASSERT_TRUE(QDir().mkpath(path(u"site"_s)));
        server.start(todaysTool(), {u"serve"_s, path(u"site"_s), u"--port"_s, u"0"_s});
        static const QRegularExpression address(u"http://127\\.0\\.0\\.1:\\d+"_s);
        QByteArray said;
        ASSERT_TRUE(waitUntil([&] {
            said += server.readAllStandardOutput();
            site = address.match(QString::fromUtf8(said)).captured();
            return !site.isEmpty();
        })) << said.constData();
    }

    /// Packs a build of today as README.md says, and announces it.
    void publish(const QString &version, const QString &archive, const QString &feed) {
        const QString staging = path(u"staging/Tarvix Notes.app"_s);
        makeBundle(tree, today, version, staging);
        const QString packed = path(u"site/"_s + archive);
        const QString pack =
            archive.endsWith(u".zip"_s) ? u"zip -qry \"$1\" \"$2\""_s : u"tar czf \"$1\" \"$2\""_s;
        const ProcessResult made =
            runProcess(u"/bin/sh"_s, {u"-c"_s, u"cd \"$0\" && "_s + pack, path(u"staging"_s), packed,
                                      u"Tarvix Notes.app"_s});
        ASSERT_EQ(made.status, 0) << made.errors.constData();
        const QByteArray address = (site + u'/' + archive).toUtf8();
        const QByteArray number = version.toUtf8();
        tx::test::writeFile(
            path(u"site/"_s + feed),
            feed.endsWith(u".json"_s)
                ? R"({"release":[{"type":"build","title":"Notes","build":")" + number + R"(","version":")" +
                      number + R"(.0","date":"2026-11-01 10:00:00","downloadURL":")" + address + "\"}]}"
                : R"(<rss version="2.0" xmlns:sparkle="http://127.0.0.1/s"><channel><item><title>Notes</title>)"
                  R"(<enclosure url=")" +
                      address + R"(" sparkle:version=")" + number + R"(" sparkle:shortVersionString=")" +
                      number + R"(.0"/></item></channel></rss>)");
        const ProcessResult checked =
            runProcess(todaysTool(), {u"feed"_s, u"validate"_s, path(u"site/"_s + feed)});
        ASSERT_EQ(checked.status, 0) << checked.output.constData() << checked.errors.constData();
    }

    ProcessResult notes(const QStringList &words) const {
        QProcess process;
        process.start(program, words);
        EXPECT_TRUE(process.waitForFinished(60000));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }

    /// Ends the builds that were opened so far: the reaper does not know one whose bundle has been replaced.
    void endLaunched() const {
        static const QRegularExpression launch(u" pid=(\\d+) "_s);
        for (auto matches = launch.globalMatch(QString::fromUtf8(tx::test::readFile(launches)));
             matches.hasNext();) {
            const QString process = matches.next().captured(1);
            if (tx::test::readFile(u"/proc/%1/cmdline"_s.arg(process)).startsWith(program.toUtf8()))
                kill(process.toInt(), SIGKILL);
        }
    }

    /// Waits until the new build runs in the old one's place and nothing of the update is left.
    void expectToComeUp(const QByteArray &version) {
        const QByteArray line = "build=" + version + " version=" + version + ".0";
        EXPECT_TRUE(waitUntil([&] { return tx::test::readFile(launches).contains(line); }))
            << tx::test::readFile(launches).constData();
        EXPECT_EQ(tx::test::namesIn(path(u"My Applications"_s)), QStringList{u"Tarvix Notes.app"_s});
        EXPECT_TRUE(waitUntil([&] { return tx::test::namesIn(cache).isEmpty(); }))
            << tx::test::namesIn(cache).join(u' ').toStdString();
    }
};

TEST_F(UpdateFromOldRelease, InstallsTodaysBuildWhichTakesOverSettingsAndFolders) {
    ASSERT_EQ(notes({u"add"_s, u"written by the old build"_s}).status, 0);
    ASSERT_EQ(notes({u"profile"_s, u"on"_s}).status, 0);
    publish(u"2"_s, u"Notes.zip"_s, u"feed.json"_s);
    const ProcessResult updated = notes({u"update"_s, site + u"/feed.json"_s});
    EXPECT_EQ(updated.status, 0) << updated.output.constData() << updated.errors.constData();
    expectToComeUp("2");

    // What the old build stored is what the new one reads.
    const tx::UserDefaults stored(settings);
    const QString identity = stored.stringValue(TXUpdatePrefAnonymousUUIDKey);
    EXPECT_FALSE(identity.isEmpty());
    EXPECT_TRUE(stored.dateValue(TXUpdatePrefLastSystemProfileDateKey).isValid());
    EXPECT_EQ(notes({u"version"_s}).output, QByteArray("Tarvix Notes 2.0 (build 2)\n"));
    EXPECT_EQ(notes({u"list"_s}).output, QByteArray("written by the old build\n"));
    const ProcessResult again = notes({u"update"_s});
    EXPECT_EQ(again.status, 0) << again.errors.constData();
    EXPECT_TRUE(again.output.contains("Asking " + (site + u"/feed.json"_s).toUtf8()))
        << again.output.constData();
    EXPECT_TRUE(again.output.contains("This is the latest version.")) << again.output.constData();
    const tx::UserDefaults after(settings);
    EXPECT_EQ(after.stringValue(TXUpdatePrefAnonymousUUIDKey), identity);
    EXPECT_TRUE(after.boolValue(TXUpdatePrefSendsSystemProfileKey));
    EXPECT_EQ(QFile::permissions(settings) & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_EQ(tx::test::namesIn(path(u"home/.config"_s)),
              (QStringList{u".org.example.TarvixNotes.plist.lock"_s, u"org.example.TarvixNotes.plist"_s}));

    endLaunched();
    // The new build updates itself in its turn, through the folders that the old one made.
    publish(u"3"_s, u"Notes-3.zip"_s, u"feed.json"_s);
    EXPECT_EQ(notes({u"update"_s}).status, 0);
    expectToComeUp("3");
    EXPECT_EQ(
        tx::test::namesIn(path(u"home/.cache/TarvixUpdate"_s)).filter(u"TarvixNotes"_s),
        (QStringList{u"org.example.TarvixNotes.TXUpdater"_s, u"org.example.TarvixNotes.TXUpdater.lock"_s}));
}

TEST_F(UpdateFromOldRelease, TakesTodaysAppcastAndCompressedTarArchive) {
    publish(u"2"_s, u"Notes.tgz"_s, u"feed.xml"_s);
    const ProcessResult updated = notes({u"update"_s, site + u"/feed.xml"_s});
    EXPECT_EQ(updated.status, 0) << updated.output.constData() << updated.errors.constData();
    expectToComeUp("2");
}

/// `present` without the members that `earlier` has not: today's tool may say more.
QJsonValue knownTo(const QJsonValue &earlier, const QJsonValue &present) {
    if (earlier.isObject() && present.isObject()) {
        const QJsonObject known = earlier.toObject();
        QJsonObject result;
        for (auto it = known.begin(); it != known.end(); ++it)
            result.insert(it.key(), knownTo(it.value(), present[it.key()]));
        return result;
    }
    if (earlier.isArray() && present.isArray()) {
        const QJsonArray known = earlier.toArray();
        QJsonArray result = present.toArray();
        for (qsizetype i = 0; i < result.size() && i < known.size(); ++i)
            result[i] = knownTo(known[i], result[i]);
        return result;
    }
    return present;
}

/// The feeds in the documentation and in the example, by name.
QList<QPair<QString, QByteArray>> publishedFeeds() {
    QList<QPair<QString, QByteArray>> feeds;
    static const QRegularExpression block(u"```(json|xml)\\n(.*?)```"_s,
                                          QRegularExpression::DotMatchesEverythingOption);
    for (const QString &page : {u"/README.md"_s, u"/docs/publishing.md"_s}) {
        const QString content = QString::fromUtf8(tx::test::readFile(tree + page));
        for (auto blocks = block.globalMatch(content); blocks.hasNext();) {
            const auto match = blocks.next();
            const QString text = match.captured(2).trimmed();
            if (text.startsWith(u"{ \"release\""_s) || text.startsWith(u"<rss"_s))
                feeds.append({u"documented-%1.%2"_s.arg(feeds.size()).arg(match.captured(1)), text.toUtf8()});
        }
    }
    EXPECT_EQ(feeds.size(), 2) << "the documentation shows a JSON feed and an appcast";
    feeds.append({u"example.json"_s,
                  tx::test::readFile(tree + u"/examples/notes/site/feed.json"_s).replace("PORT", "8080")});
    return feeds;
}

/// The output of a tool for a feed.
QJsonObject shownBy(const QString &tool, const QString &feed) {
    const ProcessResult shown = runProcess(
        tool, {u"feed"_s, u"show"_s, feed, u"--build"_s, u"1"_s, u"--system"_s, u"12.0.0"_s, u"--json"_s});
    EXPECT_EQ(shown.status, 0) << shown.errors.constData();
    return QJsonDocument::fromJson(shown.output).object();
}

TEST_F(OldRelease, ReadsTodaysPublishedFeedsTheSameWay) {
    for (const auto &[name, content] : publishedFeeds()) {
        SCOPED_TRACE(name.toStdString());
        tx::test::writeFile(path(name), content);
        const QJsonObject read[2] = {shownBy(oldTool(), path(name)), shownBy(todaysTool(), path(name))};
        ASSERT_FALSE(read[0].value(u"tracks"_s)[0][u"updates"_s].toArray().isEmpty());
        EXPECT_EQ(QJsonDocument(read[0]).toJson().toStdString(),
                  QJsonDocument(knownTo(read[0], read[1]).toObject()).toJson().toStdString());
    }
}

/// Earlier builds ignore the first line of a signed feed.
TEST_F(OldRelease, FindsInASignedFeedWhatIsThereWithoutTheSignature) {
    const ProcessResult made =
        runProcess(todaysTool(), {u"keygen"_s, u"--no-passphrase"_s, path(u"release"_s)});
    ASSERT_EQ(made.status, 0) << made.errors.constData();
    for (const auto &[name, content] : publishedFeeds()) {
        SCOPED_TRACE(name.toStdString());
        tx::test::writeFile(path(name), content);
        const QJsonValue before = shownBy(oldTool(), path(name))[u"tracks"_s][0];
        const ProcessResult done =
            runProcess(todaysTool(), {u"feed"_s, u"sign"_s, path(name), u"--identifier"_s,
                                      u"org.example.MyApp"_s, u"--key"_s, path(u"release"_s)});
        ASSERT_EQ(done.status, 0) << done.errors.constData();
        EXPECT_NE(tx::test::readFile(path(name)), content);
        EXPECT_FALSE(before[u"updates"_s].toArray().isEmpty());
        EXPECT_EQ(shownBy(oldTool(), path(name))[u"tracks"_s][0], before);
    }
}

} // namespace
