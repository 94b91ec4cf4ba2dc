// SPDX-License-Identifier: MIT
// The commands of txupdate that sign and verify feeds.
#include "tests/support/feedserver.h"
#include "tests/tools/txupdate/trustcommandstest.h"
#include "trust/freshness.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>

using namespace Qt::StringLiterals;
using namespace tx::test;
using namespace tx::trust;

namespace {

using SignFeed = TrustCommands;
using VerifyFeed = TrustCommands;

/// What `feed show` sees, which reads as applications do.
QJsonObject entriesOf(const QByteArray &output) {
    QJsonObject all = QJsonDocument::fromJson(output).object();
    QJsonArray tracks;
    for (const QJsonValue &track : all[u"tracks"_s].toArray()) {
        if (!track[u"updates"_s].toArray().isEmpty())
            tracks << track;
    }
    EXPECT_FALSE(tracks.isEmpty()) << output.constData();
    return {{u"tracks"_s, tracks}};
}

TEST_F(SignFeed, EveryReaderSeesTheSameEntriesAsBefore) {
    const QByteArray xml = "<rss xmlns:sparkle=\"x\"><channel><item><title>%1</title><enclosure "
                           "url=\"https://e.org/a.tgz\" sparkle:version=\"1043\"/></item></channel></rss>\n";
    QByteArray wide("\xFF\xFE");
    for (const char c : feed)
        wide += c, wide += '\0';
    const std::pair<const char *, QByteArray> documents[] = {
        {"JSON", feed},
        {"mark", "\xEF\xBB\xBF\n" + feed},
        {"UTF-16", wide},
        {"XML", QByteArray(xml).replace("%1", "caf\xC3\xA9")},
        {"declared",
         "<?xml version=\"1.0\" encoding='utf-8'?>\n" + QByteArray(xml).replace("%1", "caf\xC3\xA9")},
        {"Latin",
         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n" + QByteArray(xml).replace("%1", "caf\xE9")},
        {"Cyrillic",
         "<?xml version='1.0' encoding='windows-1251'?>" + QByteArray(xml).replace("%1", "\xC4\xE0")},
    };
    for (const auto &[what, document] : documents) {
        const QString source = file(document);
        const QByteArray before = run(show(source)).output;
        const QStringList validate{u"feed"_s, u"validate"_s, source};
        const QByteArray judged = run(validate).output;
        const ProcessResult result = signFeed(source);
        ASSERT_EQ(result.status, 0) << what << result.errors.constData();
        EXPECT_TRUE(result.output.contains(
            "is signed: txupdate-feed:1 bundle:org.example.Host feed:release serial:"));
        EXPECT_EQ(entriesOf(run(show(source)).output), entriesOf(before)) << what;
        // Unsigned entries are reported only if the feed is signed.
        QByteArrayList lines = run(validate).output.split('\n');
        lines.removeIf([](const QByteArray &line) { return line.contains("no signature"); });
        EXPECT_EQ(lines.mid(0, lines.size() - 2), judged.split('\n').mid(0, lines.size() - 2)) << what;
        const ProcessResult verified = verifyFeed(source);
        EXPECT_EQ(verified.status, 0) << what << verified.errors.constData();
        const QByteArray signedBytes = readFile(source);
        EXPECT_TRUE(QString::fromUtf8(signedBytes).toUtf8() == signedBytes) << what;
        EXPECT_TRUE(signedBytes.startsWith("{\"signature\":[{") ||
                    signedBytes.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?><!-- signature "))
            << what;
    }
}

TEST_F(SignFeed, AgainReplacesTheSignatureWithALaterOne) {
    const QString source = file(feed);
    ASSERT_EQ(signFeed(source).status, 0);
    const auto serialOf = [&] {
        const QByteArray line = readFile(source).split('\n').first();
        return line.mid(line.indexOf("serial:") + 7, 10).toLongLong();
    };
    const qint64 first = serialOf();
    EXPECT_NEAR(double(first), double(QDateTime::currentSecsSinceEpoch()), 100);
    ASSERT_EQ(signFeed(source, {}, {u"one"_s, u"two"_s}).status, 0);
    EXPECT_GT(serialOf(), first);
    EXPECT_EQ(readFile(source).count("untrusted comment"), 2);
    EXPECT_EQ(readFile(source).count('\n'), 1);
    const ProcessResult validated =
        run({u"feed"_s, u"show"_s, source, u"--build"_s, u"1"_s, u"--system"_s, u"1.0.0"_s, u"--json"_s});
    EXPECT_TRUE(validated.output.contains("1043"));
}

TEST_F(SignFeed, ExpiryAndNameAreThePublishers) {
    const QString source = file(feed);
    const auto line = [&] { return readFile(source).split('\n').first(); };
    ASSERT_EQ(signFeed(source, {u"--expires"_s, u"never"_s, u"--feed-name"_s, u"my beta"_s}).status, 0);
    EXPECT_TRUE(line().contains(" feed:my%20beta serial:")) << line().constData();
    EXPECT_TRUE(line().contains(" expires:never\\n")) << line().constData();
    makeApp(u"My.app"_s, u"1042"_s, {keyText(key(0))}, "<key>TXUpdateFeedName</key><string>nightly</string>");
    const auto in400 = [] {
        return QDateTime::currentDateTimeUtc().addDays(400).toString(u"yyyy-MM-dd"_s).toLatin1();
    };
    const QByteArray atTheEarliest = in400();
    ASSERT_EQ(signFeed(source, {u"--expires"_s, u"400"_s}).status, 0);
    EXPECT_TRUE(line().contains(" feed:nightly serial:")) << line().constData();
    EXPECT_TRUE(line().contains(" expires:" + atTheEarliest) || line().contains(" expires:" + in400()))
        << line().constData();
    EXPECT_EQ(verifyFeed(source).status, 0);
    for (const char *bad : {"0", "401", "-1", "x", "", "1.5"}) {
        EXPECT_EQ(signFeed(source, {u"--expires"_s, QString::fromLatin1(bad)}).status, 64) << bad;
    }
    EXPECT_EQ(run({u"feed"_s, u"sign"_s, source, u"--key"_s, path(u"one"_s)}).status, 64);
    EXPECT_EQ(
        run({u"feed"_s, u"sign"_s, source, u"--key"_s, path(u"one"_s), u"--identifier"_s, u"x"_s}).status, 0);
    EXPECT_TRUE(line().contains(" bundle:x feed:release "));
}

TEST_F(SignFeed, FileKeepsItsModeAndIsNotTouchedWhenItCannotBeSigned) {
    const QString source = file(feed);
    const auto mode = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup;
    ASSERT_TRUE(QFile::setPermissions(source, mode));
    ASSERT_EQ(signFeed(source).status, 0);
    EXPECT_EQ(QFileInfo(source).permissions() & ~(QFile::ReadUser | QFile::WriteUser), mode);
    const std::pair<QByteArray, const char *> bad[] = {
        {"[]", "a JSON feed was expected, an object in braces"},
        {"{\"release\":[}", "the feed cannot be read"},
        {"{\"signature\":[],\"release\":[]}", "has a track \"signature\" that is not in its first line"},
        {"<rss>", "the feed cannot be read"},
        {"<?xml version='1.0' encoding='x-none'?><rss/>", "the encoding that it declares, X-NONE"},
        {"<?xml version='1.0' encoding='US-ASCII'?><rss>caf\xE9</rss>", "cannot be converted to UTF-8"},
        {R"({"signature":[{"type":"signature","value":"x"}],)"
         "\n\"release\":[]}",
         "Remove it, and sign again"},
    };
    for (const auto &[document, part] : bad) {
        writeFile(source, document);
        expectRefused(signFeed(source), part);
        EXPECT_EQ(readFile(source), document);
    }
    writeFile(source, feed);
    expectRefused(signFeed(source, {}, {u"foreign"_s}), "none of these keys is one of the application's");
    expectRefused(signFeed(path(u"none.json"_s)), "No such file");
    EXPECT_EQ(readFile(source), feed);
    const QString ahead = feedSignedAt(QDateTime::currentSecsSinceEpoch() + aDay + 1000, 60);
    expectRefused(signFeed(ahead), "more than a day ahead of this machine's clock");
}

TEST_F(VerifyFeed, ReadsFilesAndAddresses) {
    const QString source = file(feed);
    ASSERT_EQ(signFeed(source).status, 0);
    const QByteArray document = readFile(source);
    FeedServer server;
    server.always([document](const HttpRequest &request) {
        return request.path() == "/xml" ? HttpReply::file(document, "application/xml")
                                        : HttpReply::json(document);
    });
    const auto fetch = [&](const QString &name) {
        return runWhileServing({u"feed"_s, u"verify"_s, server.url(name), u"--app"_s, path(u"My.app"_s)});
    };
    const ProcessResult result = fetch(u"/json"_s);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.contains("is signed: txupdate-feed:1 bundle:org.example.Host feed:release"));
    expectRefused(fetch(u"/xml"_s), "served with another type");
    EXPECT_EQ(verifyFeed(path(u"none.json"_s)).status, 1);
}

TEST_F(VerifyFeed, RefusesWhatApplicationsRefuse) {
    const QString source = file(feed);
    expectRefused(verifyFeed(source), "the feed has no signature");
    ASSERT_EQ(signFeed(source).status, 0);
    const QByteArray good = readFile(source);
    writeFile(source, QByteArray(good).replace("e.org", "f.org"));
    expectRefused(verifyFeed(source), "the feed is not the one that key");
    writeFile(source, good);
    makeApp(u"Other.app"_s, u"1"_s, {keyText(key(2))});
    expectRefused(verifyFeed(source, u"Other.app"_s), "by one of the application's keys");
    makeApp(u"Beta.app"_s, u"1"_s, {keyText(key(0))}, "<key>TXUpdateFeedName</key><string>beta</string>");
    expectRefused(verifyFeed(source, u"Beta.app"_s), "signed for the name \"release\"");
    const int64_t now = QDateTime::currentSecsSinceEpoch();
    expectRefused(verifyFeed(feedSignedAt(now - 61 * aDay, 60)), "the signature of the feed has expired");
    expectRefused(verifyFeed(feedSignedAt(now + aDay + 1000, 60)),
                  "more than a day ahead of this machine's clock");
    // The application was built later than the clock says.
    const QByteArray date = QByteArray::fromStdString(formatDate(now + 5 * aDay));
    makeApp(u"Later.app"_s, u"1"_s, {keyText(key(0))},
            "<key>TXUpdateBuildDate</key><string>" + date + "</string>");
    EXPECT_EQ(verifyFeed(feedSignedAt(now + aDay + 1000, 60), u"Later.app"_s).status, 0);
    // Signed, but nothing that a reader takes.
    const auto broken = tx::trust::signFeed("{\"release\":[}", FeedFormat::Json, {&key(0)},
                                            {"org.example.Host", "release", now, 60});
    ASSERT_TRUE(broken) << broken.fault().what;
    expectRefused(verifyFeed(file(QByteArray::fromStdString(broken->document))), "the feed cannot be read");
}

TEST_F(VerifyFeed, WarnsTwoWeeksBeforeTheExpiry) {
    const int64_t now = QDateTime::currentSecsSinceEpoch();
    const ProcessResult soon = verifyFeed(feedSignedAt(now - 47 * aDay, 60));
    EXPECT_EQ(soon.status, 0) << soon.errors.constData();
    EXPECT_TRUE(
        soon.errors.contains("warning: the signature expires in less than 14 days: sign the feed again"));
    const ProcessResult later = verifyFeed(feedSignedAt(now - 45 * aDay, 60));
    EXPECT_EQ(later.status, 0);
    EXPECT_EQ(later.errors, QByteArray());
}

} // namespace
