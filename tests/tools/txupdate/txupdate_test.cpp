// SPDX-License-Identifier: MIT
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/tools/txupdate/txupdatetest.h"

#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include <QJsonArray>
#include <QTcpSocket>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::ProcessResult;
using tx::test::TxUpdate;

namespace {

TEST_F(TxUpdate, CompareAnswersArgumentsAndLines) {
    EXPECT_EQ(run({u"compare"_s, u"1.0b1"_s, u"1.0"_s}).output, QByteArray("-1\n"));
    EXPECT_EQ(run({u"compare"_s, u"1.0"_s, u"1.0"_s}).output, QByteArray("0\n"));
    EXPECT_EQ(run({u"compare"_s, u"1.10"_s, u"1.9"_s}).output, QByteArray("1\n"));
    const ProcessResult lines =
        run({u"compare"_s}, "[\"1.0\",\"1.0.1\"]\n[\"\\u0661\", \"1\"]\n[null,\"\"]\n[\"2\",\"1\"]\n");
    EXPECT_EQ(lines.status, 0);
    EXPECT_EQ(lines.output, QByteArray("-1\n0\n0\n1\n"));
}

TEST_F(TxUpdate, CompareNamesABadLine) {
    for (const QByteArray bad : {"nonsense", "[1,2]", "[\"1\"]", "\"1\"", "[\"1\",\"2\",\"3\"]", ""}) {
        const ProcessResult result = run({u"compare"_s}, "[\"1\",\"1\"]\n" + bad + "\n[\"1\",\"1\"]\n");
        EXPECT_EQ(result.status, 65) << bad.constData();
        EXPECT_EQ(result.output, QByteArray("0\n"));
        EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("standard input, line 2"));
    }
}

TEST_F(TxUpdate, VersionPrintsTheParts) {
    EXPECT_EQ(run({u"version"_s, u"4.2 rc1"_s}).output,
              QByteArray("{\"format\":0,\"stringValue\":\"4.2fc\",\"majorVersion\":4,\"minorVersion\":2,"
                         "\"patchVersion\":0,"
                         "\"suffix\":4,\"suffixString\":\"fc\",\"suffixVersion\":1}\n"));
    const ProcessResult lines = run({u"version"_s}, "\"Version 3\"\n\"18446744073709551616.1\"\n");
    EXPECT_EQ(lines.status, 0);
    EXPECT_TRUE(lines.output.startsWith("{\"format\":1,\"stringValue\":\"version 3\",\"majorVersion\":0,"));
    EXPECT_TRUE(lines.output.contains("\"suffixString\":null"));
    EXPECT_TRUE(lines.output.contains("\"majorVersion\":9223372036854775807"));
    EXPECT_EQ(run({u"version"_s}, "7\n").status, 65);
}

TEST_F(TxUpdate, FeedShowPrintsEverythingAsJson) {
    const ProcessResult result = run(show(file(R"({"release":[
        {"type":"build","build":"1043","version":"2.1","title":"T","date":"2026-05-01 10:00:00",
         "downloadURL":"https://e.org/d.zip","preferredDisplaySize":"{640, 480}","minBuild":"1"},
        {"type":"post","url":"https://e.org/p","display":"passive","title":"P"},
        {"type":"build","build":"1000","downloadURL":"https://e.org/d.zip"},
        {"type":"build","build":"3000"}],"beta":[]})")));
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    const QJsonObject all = json(result);
    const QJsonArray tracks = all[u"tracks"_s].toArray();
    ASSERT_EQ(tracks.size(), 2);
    EXPECT_EQ(tracks[0].toObject(), (QJsonObject{{u"name"_s, u"beta"_s},
                                                 {u"recommendedUpdate"_s, QJsonValue()},
                                                 {u"updates"_s, QJsonArray()},
                                                 {u"posts"_s, QJsonArray()}}));
    const QJsonObject release = tracks[1].toObject();
    EXPECT_EQ(release[u"recommendedUpdate"_s], u"1043"_s);
    const QJsonObject update = release[u"updates"_s].toArray()[0].toObject();
    EXPECT_EQ(update[u"version"_s], u"1043"_s);
    EXPECT_EQ(update[u"displayVersion"_s], u"2.1"_s);
    EXPECT_EQ(update[u"date"_s], u"2026-05-01T17:00:00Z"_s);
    EXPECT_EQ(update[u"dateString"_s], u"2026-05-01 10:00:00"_s);
    EXPECT_EQ(update[u"fileURL"_s], u"https://e.org/d.zip"_s);
    EXPECT_TRUE(update[u"linkURL"_s].isNull());
    EXPECT_TRUE(update.contains(u"linkURL"_s));
    EXPECT_EQ(update[u"preferredDisplaySize"_s], (QJsonArray{640, 480}));
    EXPECT_EQ(update[u"conditions"_s].toObject(), (QJsonObject{{u"minimumAppBuild"_s, u"1"_s},
                                                               {u"maximumAppBuild"_s, QJsonValue()},
                                                               {u"minimumSystemVersion"_s, QJsonValue()},
                                                               {u"maximumSystemVersion"_s, QJsonValue()},
                                                               {u"launch"_s, 2}}));
    const QJsonObject post = release[u"posts"_s].toArray()[0].toObject();
    EXPECT_EQ(post[u"displayTime"_s], 2);
    EXPECT_EQ(post[u"postURL"_s], u"https://e.org/p"_s);
    EXPECT_EQ(post[u"preferredDisplaySize"_s], (QJsonArray{0, 0}));
    EXPECT_EQ(all[u"skipped"_s].toArray(),
              (QJsonArray{QJsonObject{{u"track"_s, u"release"_s},
                                      {u"index"_s, 2},
                                      {u"reason"_s, u"build 1000 is not newer than build 1042"_s}},
                          QJsonObject{{u"track"_s, u"release"_s},
                                      {u"index"_s, 3},
                                      {u"reason"_s, u"Update lacks download URL or a link."_s}}}));
}

TEST_F(TxUpdate, FeedShowIsReadableByAPerson) {
    QStringList words = show(file(
        R"({"release":[{"type":"build","build":"1043","downloadURL":"https://e.org/d.zip"},{"type":"x"}]})"));
    words.removeLast();
    const ProcessResult result = run(words);
    EXPECT_EQ(result.status, 0);
    for (const char *part : {"Track \"release\": 1 updates, 0 posts", "* 1043 (build 1043), no date",
                             "Recommended: build 1043", "release[1]: unknown type \"x\""})
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(part));
}

TEST_F(TxUpdate, FeedThatFailsPrintsItsError) {
    const ProcessResult result = run(show(file("[]")));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(json(result)[u"error"_s].toObject(),
              (QJsonObject{{u"domain"_s, u"TXUpdater"_s},
                           {u"code"_s, 0},
                           {u"description"_s,
                            u"The update feed could not be processed. Check the website for updates."_s},
                           {u"failureReason"_s, u"The format of the update feed is invalid."_s},
                           {u"recoverySuggestion"_s, QJsonValue()}}));
    EXPECT_THAT(result.errors.toStdString(), testing::HasSubstr("its top level is no object"));
    const ProcessResult missing = run(show(path(u"none.json"_s)));
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.output.toStdString(), testing::HasSubstr("none.json"));
}

TEST_F(TxUpdate, FeedShowReadsAnAddressWithItsType) {
    FeedServer server;
    server.expect("GET", "/f", HttpReply::json("{\"release\":[]}"));
    server.expect("GET", "/f", HttpReply::file("{\"release\":[]}", "text/plain"));
    server.expect("GET", "/f", HttpReply::file("{\"release\":[]}", "text/plain"));
    server.expect("GET", "/f", HttpReply{.status = 404});
    EXPECT_EQ(runWhileServing(show(server.url(u"/f"_s))).status, 0);
    EXPECT_EQ(runWhileServing(show(server.url(u"/f"_s))).status, 1);
    EXPECT_EQ(
        runWhileServing(show(server.url(u"/f"_s)) + QStringList{u"--content-type"_s, u"application/json"_s})
            .status,
        0);
    const ProcessResult notFound = runWhileServing(show(server.url(u"/f"_s)));
    EXPECT_EQ(notFound.status, 1);
    EXPECT_EQ(json(notFound)[u"error"_s].toObject()[u"failureReason"_s],
              u"An http status of 404 occurred when accessing the feed."_s);
    EXPECT_EQ(server.requests().first().target, QByteArray("/f")) << "nothing is added";
}

TEST_F(TxUpdate, ValidateListsWhatIsDroppedAndDoubtful) {
    const ProcessResult bad = run({u"feed"_s, u"validate"_s, file(R"({"release":[
        {"type":"build","build":"1","downloadURL":"https://e.org/a.zip","date":"2026-05-01 10:00:00"},
        {"type":"build","build":"1","downloadURL":"https://e.org/a.dmg","date":"May 1"},
        {"type":"build","build":"2","webpageURL":"https://e.org/","releaseNotesURL":"notes.html","colour":"red"},
        {"type":"build","build":"3"},
        {"type":"post","url":"https://e.org/","date":"2026-05-01 10:00:00","endDate":"2001-01-01 00:00:00"},
        {"type":"banner"}]})")});
    EXPECT_EQ(bad.status, 1);
    for (const char *line :
         {"error: release[3]: Update lacks download URL or a link.",
          "error: release[4]: endDate 2001-01-01 00:00:00 has passed",
          "error: release[5]: unknown type \"banner\"", "warning: release[1]: duplicate build \"1\"",
          "warning: release[1]: the date \"May 1\" is not of the form",
          "warning: release[1]: the archive \"a.dmg\" cannot be unpacked", "warning: release[2]: no date",
          "warning: release[2]: bad URL \"notes.html\"", "warning: release[2]: unknown member \"colour\""})
        EXPECT_THAT(bad.output.toStdString(), testing::HasSubstr(line));
    EXPECT_THAT(bad.output.toStdString(), testing::Not(testing::HasSubstr("release[0]")));
    const ProcessResult good = run(
        {u"feed"_s, u"validate"_s,
         file(
             R"({"release":[{"type":"build","build":"1","downloadURL":"https://e.org/a.zip","date":"2026-05-01 10:00:00"}]})")});
    EXPECT_EQ(good.status, 0) << good.output.constData();
    EXPECT_EQ(run({u"feed"_s, u"validate"_s, file("{")}).status, 1);
}

TEST_F(TxUpdate, ValidateFindsTheSameFaultsBesideNumbersOfAnySize) {
    const auto complaints = [this](const QString &number) {
        const QString feed = uR"({"release":[
            {"type":"build","build":1043,"downloadURL":"http://e.org/a.rar","bogus":"x"},
            {"type":"build","build":1044,"downloadURL":"https://e.org/a.zip","date":"May 1"},
            {"type":"build","build":1043,"downloadURL":"https://e.org/b.zip","date":"2026-05-01 10:00:00"},
            {"type":"post","url":"https://e.org/","date":"2026-05-01 10:00:00","endDate":"2001-01-01 00:00:00"}],
            "other":[{"type":"build","build":"1","downloadURL":"https://e.org/","title":%1}]})"_s;
        const ProcessResult result = run(
            {u"feed"_s, u"validate"_s, file(feed.arg(number).toUtf8()), u"--url"_s, u"https://e.org/f"_s});
        EXPECT_EQ(result.status, 1);
        return result.output.toStdString();
    };
    const std::string expected = complaints(u"1"_s);
    for (const char *line :
         {"error: release[0]: the archive's URL \"http://e.org/a.rar\" is not https",
          "error: release[3]: endDate 2001-01-01 00:00:00 has passed",
          "warning: release[0]: unknown member \"bogus\"",
          "warning: release[0]: the archive \"a.rar\" cannot be unpacked",
          "warning: release[1]: the date \"May 1\"", "warning: release[1]: \"build\" is no text",
          "warning: release[2]: duplicate build \"1043\"", "warning: other[0]: \"title\" is no text"})
        EXPECT_THAT(expected, testing::HasSubstr(line));
    EXPECT_THAT(expected, testing::Not(testing::HasSubstr("release[1]: duplicate")));
    for (const QString &number : {u"1e999"_s, u"18446744073709551616"_s, QString(400, u'7'), u"-0.5E-999"_s})
        EXPECT_EQ(complaints(number), expected) << number.toStdString();
}

TEST_F(TxUpdate, ShowAndValidateSayWhichArchivesAnHttpsFeedMayNotName) {
    const QString jsonFeed = file(R"({"release":[
        {"type":"build","build":"1043","downloadURL":"https://e.org/a.zip","date":"2026-05-01 10:00:00"},
        {"type":"build","build":"1044","downloadURL":"http://e.org/a.zip","date":"2026-05-01 10:00:00"}]})");
    const QString appcastFeed = file(R"(<rss xmlns:sparkle="http://e.org/s"><channel>
        <item><sparkle:version>1043</sparkle:version><pubDate>2026-05-01 10:00:00</pubDate>
            <enclosure url="https://e.org/a.zip"/></item>
        <item><sparkle:version>1044</sparkle:version><pubDate>2026-05-01 10:00:00</pubDate>
            <enclosure url="http://e.org/a.zip"/></item></channel></rss>)",
                                     u"appcast.xml"_s);
    const char *const refused = "release[1]: the archive's URL \"http://e.org/a.zip\" is not https";
    for (const QString &source : {jsonFeed, appcastFeed}) {
        SCOPED_TRACE(source.toStdString());
        const ProcessResult secure =
            run({u"feed"_s, u"validate"_s, source, u"--url"_s, u"https://e.org/f"_s});
        EXPECT_EQ(secure.status, 1);
        EXPECT_THAT(secure.output.toStdString(), testing::HasSubstr(std::string("error: ") + refused));
        EXPECT_THAT(secure.output.toStdString(), testing::Not(testing::HasSubstr("release[0]")));
        const ProcessResult insecure =
            run({u"feed"_s, u"validate"_s, source, u"--url"_s, u"http://e.org/f"_s});
        EXPECT_EQ(insecure.status, 0) << insecure.output.constData();
        EXPECT_THAT(insecure.output.toStdString(), testing::Not(testing::HasSubstr("release[1]")));
        const ProcessResult unknown = run({u"feed"_s, u"validate"_s, source});
        EXPECT_EQ(unknown.status, 0) << unknown.output.constData();
        EXPECT_THAT(unknown.output.toStdString(), testing::HasSubstr(std::string("warning: ") + refused));

        QStringList shown = show(source) << u"--url"_s << u"https://e.org/f"_s;
        const QJsonArray updates = json(run(shown))[u"tracks"_s].toArray()[0][u"updates"_s].toArray();
        shown.removeOne(u"--json"_s);
        EXPECT_THAT(
            run(shown).output.toStdString(),
            testing::HasSubstr("http://e.org/a.zip\n      cannot be downloaded: Its archive does not have"));
        ASSERT_EQ(updates.size(), 2);
        EXPECT_TRUE(updates[0][u"canBeDownloaded"_s].toBool());
        EXPECT_TRUE(updates[0][u"downloadRefusal"_s].isNull());
        EXPECT_FALSE(updates[1][u"canBeDownloaded"_s].toBool());
        EXPECT_TRUE(updates[1][u"downloadRefusal"_s].toString().contains(u"https"_s));
    }
}

const char appcast[] = R"(<rss xmlns:sparkle="http://e.org/s"><channel>
    <item><title>A</title><sparkle:version>1050</sparkle:version><pubDate>2026-05-01 10:00:00</pubDate>
        <enclosure url="https://e.org/a.zip" sparkle:shortVersionString="2.1" length="7"/></item>
    <item><title>B</title><sparkle:version>1050</sparkle:version><sparkle:channel>beta</sparkle:channel>
        <sparkle:releaseNotesLink>notes.html</sparkle:releaseNotesLink>
        <enclosure url="https://e.org/a.dmg" sparkle:minimumSystemVersion="99"/></item>
    <item><link>https://e.org/</link><pubDate>Tue, 10 Jun 2003 04:00:00 GMT</pubDate></item>
    <item><sparkle:version>7</sparkle:version><link>https://e.org/</link></item>
    </channel></rss>)";

TEST_F(TxUpdate, FeedShowReadsAppcastsByTheirContent) {
    const QJsonObject shown = json(run(show(file(appcast)) << u"--json"_s));
    const QJsonArray tracks = shown[u"tracks"_s].toArray();
    ASSERT_EQ(tracks.size(), 1);
    EXPECT_EQ(tracks[0][u"name"_s], u"release"_s);
    EXPECT_EQ(tracks[0][u"recommendedUpdate"_s], u"1050"_s);
    const QJsonArray updates = tracks[0][u"updates"_s].toArray();
    ASSERT_EQ(updates.size(), 2);
    EXPECT_EQ(updates[0][u"displayVersion"_s], u"2.1"_s);
    EXPECT_EQ(updates[0][u"fileURL"_s], u"https://e.org/a.zip"_s);
    EXPECT_EQ(updates[0][u"conditions"_s], QJsonValue(QJsonValue::Null));
    const QJsonArray left = shown[u"skipped"_s].toArray();
    ASSERT_EQ(left.size(), 2);
    EXPECT_EQ(left[0], (QJsonObject{{u"track"_s, u"release"_s},
                                    {u"index"_s, 2},
                                    {u"reason"_s, u"Feed item lacks sparkle:version attribute"_s}}));
    EXPECT_EQ(left[1][u"index"_s], 3);
    const QStringList asJson{u"--content-type"_s, u"application/json"_s};
    EXPECT_EQ(run(show(file(appcast)) + asJson).status, 1) << "read as if served so";
    const ProcessResult broken = run(show(file("<rss>")));
    EXPECT_EQ(broken.status, 1);
    EXPECT_THAT(broken.errors.toStdString(),
                testing::HasSubstr("Premature end of data in tag rss line 1 (line 1, column 6)"));
}

TEST_F(TxUpdate, ValidateReadsAppcasts) {
    const ProcessResult result = run({u"feed"_s, u"validate"_s, file(appcast)});
    EXPECT_EQ(result.status, 1);
    for (const char *line :
         {"error: release[2]: Feed item lacks sparkle:version attribute", "warning: release[1]: no date",
          "warning: release[1]: bad URL \"notes.html\" in \"sparkle:releaseNotesLink\"",
          "warning: release[1]: \"sparkle:channel\" has no effect",
          "warning: release[1]: \"sparkle:minimumSystemVersion\" has no effect",
          "warning: release[1]: duplicate version \"1050\"",
          "warning: release[1]: the archive \"a.dmg\" cannot be unpacked",
          "warning: release[2]: the pubDate \"Tue, 10 Jun 2003 04:00:00 GMT\" is not of the form",
          "1 tracks, 3 entries kept, 1 dropped, 8 doubts"})
        EXPECT_THAT(result.output.toStdString(), testing::HasSubstr(line));
    EXPECT_THAT(result.output.toStdString(), testing::Not(testing::HasSubstr("release[0]")));
}

TEST_F(TxUpdate, CheckReadsAnAppcast) {
    FeedServer server;
    server.expect("GET", "/f", HttpReply::file(appcast, "application/rss+xml"));
    const ProcessResult found = runWhileServing(
        {u"check"_s, u"--app"_s, path(u"Applications/Host.app"_s), u"--feed"_s, server.url(u"/f"_s)});
    EXPECT_EQ(found.status, 0) << found.errors.constData();
    EXPECT_EQ(found.output, QByteArray("Host 2.1 (build 1050) is available; this is build 1042.\n"));
}

TEST_F(TxUpdate, ProfileIsWhatWouldBeSent) {
    const ProcessResult text = run({u"profile"_s});
    EXPECT_EQ(text.status, 0) << text.errors.constData();
    QStringList keys;
    for (const QByteArray &line : text.output.trimmed().split('\n'))
        keys << QString::fromUtf8(line.split(' ').first());
    EXPECT_EQ(keys, TXUpdateSystemProfile::JSONKeys());
    const QJsonObject sent = json(run({u"profile"_s, u"--json"_s}));
    EXPECT_EQ(sent[u"is64bit"_s], u"1"_s);
    EXPECT_GT(sent[u"RAM"_s].toString().toInt(), 0);
    for (auto it = sent.begin(); it != sent.end(); ++it) {
        EXPECT_TRUE(it.value().isString()) << it.key().toStdString();
        EXPECT_TRUE(keys.contains(it.key())) << it.key().toStdString();
    }
}

TEST_F(TxUpdate, ProfileKnowsTheScreensOfADesktop) {
    // A desktop that cannot be reached counts as none.
    const QStringList none{u"DISPLAY=:12345"_s, u"QT_QPA_PLATFORM=xcb"_s};
    EXPECT_EQ(json(run({u"profile"_s, u"--json"_s}, {}, none))[u"numberOfDisplays"_s], u"0"_s);
    const QStringList some{u"DISPLAY=:12345"_s, u"QT_QPA_PLATFORM=offscreen"_s};
    const QJsonObject sent = json(run({u"profile"_s, u"--json"_s}, {}, some));
    EXPECT_EQ(sent[u"numberOfDisplays"_s], u"1"_s);
    EXPECT_EQ(sent[u"resolutions"_s], u"{800, 800} (1.0)"_s);
}

TEST_F(TxUpdate, CheckAsksTheFeedForTheApplication) {
    FeedServer server;
    const QByteArray body =
        R"({"release":[{"type":"build","build":"1043","version":"2.1","downloadURL":"https://e.org/d.zip"}]})";
    server.expect("GET", "/f", HttpReply::json(body));
    server.expect("GET", "/f", HttpReply::json(body));
    server.expect("GET", "/f", HttpReply::json("{\"release\":[]}"));
    server.expect("GET", "/f", HttpReply{.status = 500});
    const QStringList words{u"check"_s, u"--app"_s, path(u"Applications/Host.app"_s), u"--feed"_s,
                            server.url(u"/f"_s)};
    const ProcessResult available = runWhileServing(words);
    EXPECT_EQ(available.status, 0) << available.errors.constData();
    EXPECT_EQ(available.output, QByteArray("Host 2.1 (build 1043) is available; this is build 1042.\n"));
    EXPECT_TRUE(
        server.requests().first().target.startsWith("/f?appName=Host&appVersion=1042&anonymousUUID="));
    const ProcessResult asJson = runWhileServing(words + QStringList{u"--json"_s});
    EXPECT_EQ(json(asJson)[u"tracks"_s].toArray()[0].toObject()[u"recommendedUpdate"_s], u"1043"_s);
    EXPECT_EQ(runWhileServing(words).output, QByteArray("Host is up to date.\n"));
    const ProcessResult failed = runWhileServing(words);
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors.toStdString(), testing::HasSubstr("An http status of 500 occurred"));
}

TEST_F(TxUpdate, CheckWithoutFeedOrApplicationSaysSo) {
    const ProcessResult noFeed = run({u"check"_s, u"--app"_s, path(u"Applications/Host.app"_s)});
    EXPECT_EQ(noFeed.status, 1);
    EXPECT_THAT(noFeed.errors.toStdString(), testing::HasSubstr("--feed"));
    const ProcessResult noApp =
        run({u"check"_s, u"--app"_s, path(u"home"_s), u"--feed"_s, u"http://127.0.0.1:1/"_s});
    EXPECT_EQ(noApp.status, 1);
    EXPECT_THAT(noApp.errors.toStdString(), testing::HasSubstr("is no application"));
}

/// A running `txupdate serve`.
class Serving {
public:
    explicit Serving(const QString &folder, const QStringList &more = {}) {
        m_process.start(tx::test::programsFolder() + u"/txupdate"_s,
                        QStringList{u"serve"_s, folder, u"--port"_s, u"0"_s} + more);
        EXPECT_TRUE(m_process.waitForReadyRead(20000));
        m_port = QString::fromUtf8(m_process.readLine()).section(u':', -1).section(u'/', 0, 0).toInt();
        EXPECT_GT(m_port, 0);
    }
    ~Serving() {
        m_process.kill();
        m_process.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Serving)

    [[nodiscard]] int port() const { return m_port; }
    QByteArray ask(const QByteArray &request) const {
        QTcpSocket socket;
        socket.connectToHost(u"127.0.0.1"_s, static_cast<quint16>(m_port));
        EXPECT_TRUE(socket.waitForConnected(20000));
        socket.write(request);
        QByteArray all;
        while (socket.waitForReadyRead(20000))
            all += socket.readAll();
        return all;
    }
    /// All that it has printed, once that contains `last`.
    QByteArray printedUntil(const QByteArray &last) {
        EXPECT_TRUE(tx::test::waitUntil([&] {
            m_printed += m_process.readAllStandardOutput();
            return m_printed.contains(last);
        })) << m_printed.constData();
        return m_printed;
    }

private:
    QProcess m_process;
    QByteArray m_printed;
    int m_port = 0;
};

TEST_F(TxUpdate, ServeAnswersGetAndPostAndPrintsWhatCame) {
    QDir().mkpath(path(u"site/sub"_s));
    file("{\"release\":[]}", u"site/feed.json"_s);
    file("secret", u"outside.txt"_s);
    file("zip", u"site/a.zip"_s);
    ASSERT_TRUE(QFile::link(path(u"outside.txt"_s), path(u"site/link.txt"_s)));
    Serving server(path(u"site"_s));
    const QByteArray close = " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n";
    const QByteArray got = server.ask("GET /feed.json?appName=My%20App" + close + "\r\n");
    EXPECT_TRUE(got.startsWith("HTTP/1.1 200"));
    EXPECT_TRUE(got.contains("Content-Type: application/json\r\n")) << got.constData();
    EXPECT_TRUE(got.endsWith("{\"release\":[]}"));
    const QByteArray body = "{\"source\":\"menu\",\"systemProfile\":{\"OSVersion\":\"12\"}}";
    EXPECT_TRUE(server
                    .ask("POST /feed.json" + close + "Content-Type: application/json\r\nContent-Length: " +
                         QByteArray::number(body.size()) + "\r\n\r\n" + body)
                    .startsWith("HTTP/1.1 200"));
    EXPECT_TRUE(server.ask("GET /a.zip" + close + "\r\n").contains("Content-Type: application/zip\r\n"));
    for (const QByteArray outside : {"/../outside.txt", "/link.txt", "/none", "/sub", "/%2e%2e/outside.txt"})
        EXPECT_TRUE(server.ask("GET " + outside + close + "\r\n").startsWith("HTTP/1.1 404"))
            << outside.constData();
    const QByteArray printed = server.printedUntil("/sub");
    EXPECT_TRUE(printed.contains("profile: OSVersion = 12")) << printed.constData();
    EXPECT_FALSE(printed.contains("%2e")) << printed.constData();
    EXPECT_TRUE(printed.contains("GET /feed.json -> 200\n    appName = My App\n")) << printed.constData();
    EXPECT_TRUE(printed.contains("body: source = menu"));
}

TEST_F(TxUpdate, ServeWritesOneLineForWhateverAClientSends) {
    file("{\"release\":[]}", u"site/feed.json"_s);
    Serving server(path(u"site"_s));
    const QByteArray close = " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n";
    // Line feeds, an escape sequence, a change of the writing direction, line separators, a backslash.
    const QByteArray bad = "%0AGET%20/forged%20-%3E%20200%0D%1B%5B2J%E2%80%AE%E2%80%A8%C2%85%7F%5C";
    (void)server.ask("GET /feed.json?a" + bad + "=v" + bad + close + "\r\n");
    const QByteArray json =
        R"({"k\nGET /forged":"v\nGET /forged\u001b","systemProfile":{"p\nGET /forged":"q\nGET /forged"}})";
    (void)server.ask("POST /feed.json" + close + "Content-Length: " + QByteArray::number(json.size()) +
                     "\r\n\r\n" + json);
    (void)server.ask("GET /last" + close + "\r\n");
    const QByteArray printed = server.printedUntil("GET /last -> 404\n");
    const char *const escaped =
        "\\u{a}GET /forged -> 200\\u{d}\\u{1b}[2J\\u{202e}\\u{2028}\\u{85}\\u{7f}\\\\";
    EXPECT_TRUE(printed.contains(QByteArray("    a") + escaped + " = v" + escaped + "\n"))
        << printed.constData();
    EXPECT_TRUE(printed.contains("body: k\\u{a}GET /forged = v\\u{a}GET /forged\\u{1b}\n"))
        << printed.constData();
    EXPECT_TRUE(printed.contains("profile: p\\u{a}GET /forged = q\\u{a}GET /forged\n"))
        << printed.constData();
    for (const QByteArray &line : printed.split('\n')) {
        EXPECT_FALSE(line.startsWith("GET /forged")) << printed.constData();
        for (const char c : line)
            EXPECT_GE(static_cast<unsigned char>(c), 0x20) << printed.constData();
    }
}

TEST_F(TxUpdate, ServeAnswersOnlyUnderNamesOfThisMachine) {
    file("{\"release\":[]}", u"site/feed.json"_s);
    Serving usual(path(u"site"_s));
    Serving named(path(u"site"_s), {u"--host"_s, u"dev.example.org"_s, u"--host"_s, u"192.0.2.7"_s});
    const auto statusFor = [](const Serving &server, const QByteArray &headers) {
        return server.ask("GET /feed.json HTTP/1.1\r\n" + headers + "Connection: close\r\n\r\n").mid(9, 3);
    };
    for (const QByteArray host : {"localhost", "LOCALHOST:8000", "localhost.", "app.localhost:1", "127.0.0.1",
                                  "127.0.0.1:65535", "127.8.9.10", "[::1]", "[::1]:80"}) {
        EXPECT_EQ(statusFor(usual, "Host: " + host + "\r\n"), QByteArray("200")) << host.constData();
        EXPECT_EQ(statusFor(named, "Host: " + host + "\r\n"), QByteArray("200")) << host.constData();
    }
    for (const QByteArray host :
         {"evil.example", "localhost.evil.example", "127.0.0.1.evil.example", "notlocalhost", "128.0.0.1",
          "127.0.0", "127.0.0.256", "[::2]", "::1", "", "localhost:x", "localhost:80:80",
          "evil.example:127.0.0.1", "user@localhost", "localhost/evil", "127.0.0.1, evil.example"}) {
        EXPECT_EQ(statusFor(usual, "Host: " + host + "\r\n"), QByteArray("421")) << host.constData();
        EXPECT_EQ(statusFor(named, "Host: " + host + "\r\n"), QByteArray("421")) << host.constData();
    }
    EXPECT_EQ(statusFor(usual, ""), QByteArray("421")) << "none at all";
    EXPECT_EQ(statusFor(usual, "Host: localhost\r\nHost: evil.example\r\n"), QByteArray("421"));
    for (const QByteArray host : {"dev.example.org", "DEV.example.org:8000", "192.0.2.7:80"}) {
        EXPECT_EQ(statusFor(usual, "Host: " + host + "\r\n"), QByteArray("421")) << host.constData();
        EXPECT_EQ(statusFor(named, "Host: " + host + "\r\n"), QByteArray("200")) << host.constData();
    }
    const QByteArray post = usual.ask(
        "POST /feed.json HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\nContent-Length: 2\r\n\r\n{}");
    EXPECT_TRUE(post.startsWith("HTTP/1.1 421")) << post.constData();
    EXPECT_FALSE(post.contains("release"));
    EXPECT_TRUE(post.contains("--host")) << "what to do";
}

TEST_F(TxUpdate, EveryCommandHasHelpAndMisuseExits64) {
    for (const QStringList &command :
         {QStringList{}, QStringList{u"compare"_s}, QStringList{u"version"_s},
          QStringList{u"feed"_s, u"show"_s}, QStringList{u"feed"_s, u"validate"_s}, QStringList{u"check"_s},
          QStringList{u"update"_s}, QStringList{u"serve"_s}}) {
        const ProcessResult help = run(command + QStringList{u"--help"_s});
        EXPECT_EQ(help.status, 0);
        EXPECT_FALSE(help.output.isEmpty());
    }
    for (const QStringList &wrong :
         {QStringList{}, QStringList{u"dance"_s}, QStringList{u"compare"_s, u"1"_s}, QStringList{u"feed"_s},
          QStringList{u"feed"_s, u"show"_s, u"x"_s}, QStringList{u"check"_s},
          QStringList{u"serve"_s, u"/no/such/folder"_s}}) {
        const ProcessResult result = run(wrong);
        EXPECT_EQ(result.status, 64) << wrong.join(u' ').toStdString();
        EXPECT_FALSE(result.errors.isEmpty());
    }
    EXPECT_EQ(run({u"--version"_s}).output.trimmed(), QByteArray(TARVIXUPDATE_VERSION));
}

} // namespace
