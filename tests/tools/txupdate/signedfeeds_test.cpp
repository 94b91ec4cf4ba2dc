// SPDX-License-Identifier: MIT
// How `feed show` and `feed validate` judge signatures, and how `update` reacts to bad ones.
#include "tests/support/feedserver.h"
#include "tests/tools/txupdate/trustcommandstest.h"
#include "tests/trust/signedreleases.h"

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

constexpr int64_t day = 24 * 3600;
const QString archiveURL = u"https://e.org/a.tgz"_s;
const QByteArray archive = "the archive";

class SignedFeeds : public TrustCommands {
protected:
    const int64_t now = QDateTime::currentSecsSinceEpoch();

    static QJsonObject entry(const QString &build, const Signers &signers = {0}) {
        return entryFor(build, archiveURL, archiveTexts(archive, build.toStdString(), signers));
    }
    [[nodiscard]] QByteArray feedWith(const QJsonArray &entries, int64_t time, int64_t days = 60,
                                      const Signers &signers = {0}) const {
        return signedFeed(feedOf(entries), signers, {"org.example.Host", "release", time, days});
    }
    ProcessResult showFor(const QByteArray &document, const QString &app = u"My.app"_s) {
        return run(show(file(document)) + QStringList{u"--app"_s, path(app)});
    }
    ProcessResult validate(const QByteArray &document, const QString &app = {}) {
        QStringList words{u"feed"_s, u"validate"_s, file(document), u"--url"_s, u"https://e.org/feed.json"_s};
        if (!app.isNull())
            words << u"--app"_s << path(app);
        return run(words);
    }
    void expectValidated(const ProcessResult &result, int status, const char *part, const char *what) {
        EXPECT_EQ(result.status, status) << what << result.output.constData() << result.errors.constData();
        EXPECT_THAT((result.output + result.errors).toStdString(), testing::HasSubstr(part)) << what;
    }
};

TEST_F(SignedFeeds, ShowTellsWhatTheApplicationsKeysDoNotAdmit) {
    const QByteArray document =
        feedWith({entry(u"1043"_s), entry(u"1044"_s, {2}), entryFor(u"1045"_s, archiveURL, {})}, now);
    ProcessResult result = showFor(document);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    QJsonObject shown = json(result);
    const QJsonArray updates = shown[u"tracks"_s][0][u"updates"_s].toArray();
    ASSERT_EQ(updates.size(), 1);
    EXPECT_EQ(updates[0][u"version"_s], u"1043"_s);
    EXPECT_EQ(updates[0][u"isSigned"_s], true);
    const QJsonArray skipped = shown[u"skipped"_s].toArray();
    ASSERT_EQ(skipped.size(), 2);
    EXPECT_THAT(
        skipped[0][u"reason"_s].toString().toStdString(),
        testing::HasSubstr("no usable signature: no signature with \"txupdate-archive:1\" is by one"));
    EXPECT_EQ(skipped[1][u"reason"_s], u"no usable signature: there is no signature"_s);
    // An application without keys sees the whole feed, and so does a user who names no application.
    makeApp(u"Unkeyed.app"_s, u"1042"_s, {});
    for (const ProcessResult &open : {showFor(document, u"Unkeyed.app"_s), run(show(file(document)))}) {
        EXPECT_EQ(json(open)[u"tracks"_s].toArray().size(), 1) << "the first line is no track";
        EXPECT_EQ(json(open)[u"tracks"_s][0][u"updates"_s].toArray().size(), 3);
        EXPECT_EQ(json(open)[u"tracks"_s][0][u"updates"_s][0][u"isSigned"_s], false);
    }
}

TEST_F(SignedFeeds, ShowRefusesAFeedAsTheApplicationWould) {
    const QByteArray good = feedWith({entry(u"1043"_s)}, now);
    const std::pair<QByteArray, const char *> documents[] = {
        {feedOf({entry(u"1043"_s)}), "It is not signed by the publisher of this application."},
        {QByteArray(good).replace("1043", "1044"),
         "It is not what the publisher of this application has signed."},
        {feedWith({}, now - 61 * day), "It has expired."},
        {feedWith({}, now + 2 * day), "It is dated more than a day after the time of this computer."},
    };
    for (const auto &[document, words] : documents) {
        const ProcessResult result = showFor(document);
        EXPECT_EQ(result.status, 1) << words;
        const QJsonObject error = json(result)[u"error"_s].toObject();
        EXPECT_EQ(error[u"description"_s], u"The update information could not be verified."_s);
        EXPECT_EQ(error[u"failureReason"_s].toString().toStdString(), words);
    }
    makeApp(u"Wrong.app"_s, u"1042"_s, {"minisign:nonsense"});
    EXPECT_THAT(json(showFor(good, u"Wrong.app"_s))[u"error"_s][u"failureReason"_s].toString().toStdString(),
                testing::StartsWith("The keys of this application are malformed: "));
    EXPECT_EQ(showFor(good, u"none.app"_s).status, 1);
    // Showing a feed does not count as receiving it.
    EXPECT_EQ(showFor(feedWith({}, now - 100)).status, 0);
    EXPECT_EQ(showFor(feedWith({}, now - 200)).status, 0);
}

TEST_F(SignedFeeds, ValidateVerifiesWithTheKeysOfAnApplication) {
    const QString app = u"My.app"_s;
    const QByteArray good = feedWith({entry(u"1043"_s)}, now);
    expectValidated(validate(good, app), 0, "1 entries kept, 0 dropped", "good");
    expectValidated(validate(feedOf({entry(u"1043"_s)}), app), 1, "error: It is not signed", "unsigned");
    expectValidated(validate(feedWith({entry(u"1043"_s, {2})}, now), app), 1,
                    "error: release: build 1043: no signature with", "an entry by another key");
    expectValidated(validate(feedWith({entryFor(u"1043"_s, archiveURL, {})}, now), app), 1,
                    "error: release: build 1043: no signature: applications with keys leave it out",
                    "an entry without");
    QJsonObject changed = entry(u"1043"_s);
    changed.insert(u"signature"_s, changed[u"signature"_s].toString().replace(u"size:11"_s, u"size:12"_s));
    expectValidated(validate(feedWith({changed}, now), app), 1, "was changed after it was signed",
                    "a comment that only its signature tells");
    expectValidated(validate(feedWith({}, now - 61 * day), app), 1, "It has expired.", "expired");
    makeApp(u"Beta.app"_s, u"1042"_s, {keyText(key(0))}, "<key>TXUpdateFeedName</key><string>beta</string>");
    expectValidated(validate(good, u"Beta.app"_s), 1, "the feed was signed for the name \"release\"", "name");
}

TEST_F(SignedFeeds, ValidateReadsSignaturesWithoutAnyKey) {
    expectValidated(validate(feedWith({entry(u"1043"_s, {2})}, now, 60, {2})), 0, "0 doubts", "anybody's");
    expectValidated(validate(feedOf({entryFor(u"1043"_s, archiveURL, {})})), 0, "0 doubts",
                    "where nothing is signed, nothing is missing");
    expectValidated(validate(feedOf({entry(u"1044"_s), entryFor(u"1043"_s, archiveURL, {})})), 0,
                    "warning: release: build 1043: no signature", "one of two");
    expectValidated(validate(feedWith({entryFor(u"1043"_s, archiveURL, {})}, now)), 0,
                    "warning: release: build 1043: no signature", "a signed feed");
    QJsonObject other = entry(u"1043"_s);
    other.insert(u"build"_s, u"1044"_s);
    expectValidated(validate(feedOf({other})), 1,
                    "error: release: build 1044: the signature is for build \"1043\"", "another build's");
    other.insert(u"signature"_s, u"nonsense"_s);
    expectValidated(validate(feedOf({other})), 1, "error: release: build 1044: four lines were expected",
                    "malformed");
    const QByteArray good = feedWith({}, now);
    expectValidated(validate(QByteArray(good).replace("\"}],\n", "\" }],\n")), 1,
                    "error: the first line of the feed is not as it must be", "a line that is not quite one");
    expectValidated(validate(QByteArray(good).replace("serial:", "serials:")), 1,
                    "error: A number of seconds", "no serial");
}

TEST_F(SignedFeeds, ValidateWarnsFourteenDaysBeforeAFeedExpires) {
    const auto said = [&](int64_t left, const QString &app) {
        const ProcessResult result = validate(feedWith({}, now - 60 * day + left, 60), app);
        return std::pair(result.status,
                         result.output.contains("warning: the signature of the feed expires in "
                                                "less than 14 days"));
    };
    for (const QString &app : {QString(), u"My.app"_s}) {
        EXPECT_EQ(said(14 * day + 100, app), std::pair(0, false));
        EXPECT_EQ(said(14 * day - 1, app), std::pair(0, true));
        EXPECT_EQ(said(3600, app), std::pair(0, true));
        EXPECT_EQ(said(-10, app).first, 1);
    }
    expectValidated(validate(signedFeed("{}", {0}, {"org.example.Host", "release", now, {}})), 0, "0 doubts",
                    "never expires");
}

TEST_F(SignedFeeds, ValidateFetchesArchivesAsAnApplicationWithKeys) {
    FeedServer server;
    makeApp(u"next/My.app"_s, u"1043"_s, {keyText(key(0))});
    const QByteArray good = readFile(pack(u"next/My.app"_s));
    QByteArray served = good;
    server.always([&](const HttpRequest &) { return HttpReply::file(served); });
    const QByteArray document =
        feedOf({entryFor(u"1043"_s, server.url(u"/My.tgz"_s), archiveTexts(good, "1043"))});
    const auto check = [&](const QString &app) {
        QProcess process;
        process.start(programsFolder() + u"/txupdate"_s,
                      {u"feed"_s, u"validate"_s,
                       file(signedFeed(document, {0}, {"org.example.Host", "release", now, 60})),
                       u"--archives"_s, u"--app"_s, path(app)});
        EXPECT_TRUE(process.waitForFinished(60000));
        return ProcessResult{process.exitCode(), process.readAllStandardOutput(), {}};
    };
    expectValidated(check(u"My.app"_s), 0, "1 archives fetched, 0 cannot be installed", "good");
    served = QByteArray(good).replace(good.size() / 2, 1, "!");
    expectValidated(check(u"My.app"_s), 1, "It is not what the publisher of this application has signed.",
                    "changed");
    served = good;
    makeApp(u"Spare.app"_s, u"1042"_s, {keyText(key(0)), keyText(key(1))});
    expectValidated(check(u"Spare.app"_s), 0, "0 cannot be installed", "another application with the key");
}

} // namespace
