// SPDX-License-Identifier: MIT
// Which feeds a host with keys accepts.
#include "base/queues.h"
#include "feed/appcastreader.h"
#include "feed/jsonreader.h"
#include "feed/jsonvalues.h"
#include "model/feedmemory.h"
#include "model/hosttrust.h"
#include "os/userdefaults.h"
#include "tests/support/fakes.h"
#include "tests/support/feedserver.h"
#include "tests/support/places.h"
#include "tests/trust/signedreleases.h"

#include <TarvixUpdate/TXUpdateHost.h>

#include <QProcess>

#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;
using namespace tx::test;
namespace trust = tx::trust;
using tx::trust::FeedFormat;

namespace {

constexpr int64_t day = 24 * 3600;
const QString archiveURL = u"https://e.org/a.zip"_s;
const QByteArray archive = "the archive";

QByteArray goodBody() { return feedOf({entryFor(u"1043"_s, archiveURL, archiveTexts(archive, "1043"))}); }

QByteArray appcastItem(const QByteArray &attributes, const QByteArray &elements = {}) {
    return "<rss xmlns:sparkle=\"s\" xmlns:txupdate=\"t\"><channel><item>" + elements +
           "<enclosure url=\"https://e.org/a.zip\" sparkle:version=\"1043\" " + attributes +
           "/></item></channel></rss>";
}

QByteArray escaped(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts)
        all += text;
    return QByteArray::fromStdString(tx::trust::escapeLineFeeds(all));
}

class HostWithKeys : public WithKeys<FrameworkTest> {
protected:
    FeedServer server;

    /// Fetches a feed from a server that sends this response.
    FetchedFeed get(const HttpReply &reply) {
        server.expect("GET", "/feed", reply);
        return fetchFeed(QUrl(server.url(u"/feed"_s)));
    }
    FetchedFeed get(const QByteArray &document) { return get(HttpReply::json(document)); }
    static QStringList builds(const FetchedFeed &fetched) {
        QStringList result;
        if (fetched.feed && !fetched.error && fetched.feed->updates()) {
            const auto updates = fetched.feed->updates();
            for (const TXUpdatePtr &update : *updates)
                result << update->version();
        }
        return result;
    }
    void expectTaken(const QByteArray &document, const std::string &what = {}) {
        const FetchedFeed fetched = get(document);
        EXPECT_EQ(builds(fetched), QStringList{u"1043"_s}) << what << fetched.error.toString().toStdString();
    }
    void expectRefused(const HttpReply &reply, TXUpdateErrorCode code, const QString &reason,
                       const std::string &what = {}) {
        const FetchedFeed fetched = get(reply);
        expectTrustError(fetched.error, code, feedNotVerified, reason, what);
        ASSERT_TRUE(fetched.feed);
        EXPECT_TRUE(fetched.feed->releaseTracks().isEmpty()) << what;
    }
    void expectRefused(const QByteArray &document, TXUpdateErrorCode code, const QString &reason,
                       const std::string &what = {}) {
        expectRefused(HttpReply::json(document), code, reason, what);
    }
    [[nodiscard]] static QByteArray feedAt(int64_t time, int64_t days = 60,
                                           const std::string &name = "release") {
        return signedFeed(goodBody(), {0}, {"org.example.Host", name, time, days});
    }
    const QString older = u"The server's copy is older than one that this application has received before."_s;
    const QString ahead = u"It is dated more than a day after the time of this computer."_s;
};

TEST_F(HostWithKeys, FeedThatAnyOfItsKeysSignedIsReadInBothFormats) {
    for (const Signers &signers : {Signers{0}, Signers{1}, Signers{0, 1}, Signers{2, 1}})
        expectTaken(signedFeed(goodBody(), signers));
    const QByteArray item =
        appcastItem("txupdate:signature=\"" + escaped(archiveTexts(archive, "1043")) + "\"");
    const FetchedFeed fetched =
        get(HttpReply::file(signedFeed(item, {0}, {"org.example.Host", "release", noon, 60}, FeedFormat::Xml),
                            "application/rss+xml"));
    EXPECT_EQ(builds(fetched), QStringList{u"1043"_s}) << fetched.error.toString().toStdString();
    ASSERT_TRUE(fetched.feed->recommendedUpdate());
    EXPECT_TRUE(fetched.feed->recommendedUpdate()->isSigned());
    EXPECT_FALSE(fetched.feed->releaseTracks().contains(u"signature"_s)) << "the line is no track";
}

TEST_F(HostWithKeys, LongFeedIsVerifiedToItsEnd) {
    QByteArray body = goodBody();
    body.insert(body.lastIndexOf('}'), ",\n\"more\":[{\"title\":\"" + QByteArray(1 << 20, 'x') + "\"}]");
    const QByteArray good = signedFeed(body);
    expectTaken(good);
    for (const qsizetype at : {good.size() / 8, good.size() / 2, good.size() - 100}) {
        QByteArray changed = good;
        changed[at] = 'y';
        expectRefused(changed, TXUpdateErrorFeedNotGenuine, notGenuine, std::to_string(at));
    }
}

TEST_F(HostWithKeys, FeedKeySignsFeedsOnly) {
    becomeHostWith({keyText(key(0)), keyText(key(1), "minisign-feed:")});
    expectTaken(signedFeed(goodBody(), {1}));
    const QByteArray body = feedOf({entryFor(u"1043"_s, archiveURL, archiveTexts(archive, "1043", {1}))});
    const FetchedFeed fetched = get(signedFeed(body, {1}));
    EXPECT_TRUE(fetched.error.isNull());
    EXPECT_TRUE(builds(fetched).isEmpty()) << "its signature of an archive does not count";
}

TEST_F(HostWithKeys, FeedThatIsNotSignedForThisHostIsRefusedInWords) {
    const QByteArray good = signedFeed(goodBody());
    struct Case {
        const char *what;
        QByteArray document;
        TXUpdateErrorCode code;
        QString reason;
    };
    // The signatures of an archive, used as those of a feed.
    QByteArray replayed = good;
    const qsizetype begin = replayed.indexOf("untrusted"), end = replayed.indexOf("\"}],");
    replayed.replace(begin, end - begin, escaped(archiveTexts(good.mid(good.indexOf('\n') + 1), "1043")));
    const Case cases[] = {
        {"unsigned", goodBody(), TXUpdateErrorFeedNotSigned, notSigned},
        {"empty", "", TXUpdateErrorFeedNotSigned, notSigned},
        {"somebody else's", signedFeed(goodBody(), {2}), TXUpdateErrorFeedNotSigned, notSigned},
        {"another blank before", " " + good, TXUpdateErrorFeedNotSigned, notSigned},
        {"byte order mark", "\xEF\xBB\xBF" + good, TXUpdateErrorFeedNotSigned, notSigned},
        {"an archive's signature", replayed, TXUpdateErrorFeedNotSigned, notSigned},
        {"changed", QByteArray(good).replace("1043", "1044"), TXUpdateErrorFeedNotGenuine, notGenuine},
        {"cut off", good.chopped(1), TXUpdateErrorFeedNotGenuine, notGenuine},
        {"longer", good + "\n", TXUpdateErrorFeedNotGenuine, notGenuine},
        {"CRLF", QByteArray(good).replace("\n", "\r\n"), TXUpdateErrorFeedNotGenuine, notGenuine},
        {"comment changed", QByteArray(good).replace("feed:release", "feed:releasf"),
         TXUpdateErrorFeedNotGenuine, notGenuine},
        {"another application's", signedFeed(goodBody(), {0}, {"org.example.Other", "release", noon, 60}),
         TXUpdateErrorFeedNotGenuine, notGenuine},
        {"another feed's", signedFeed(goodBody(), {0}, {"org.example.Host", "beta", noon, 60}),
         TXUpdateErrorFeedNotGenuine, notGenuine},
        {"a track in the untrusted comment",
         QByteArray(good).replace("comment: txupdate\\n", "comment: x\"}],\"beta\":[{\"type\":\"build\"\\n"),
         TXUpdateErrorFeedNotGenuine, notGenuine},
    };
    for (const Case &c : cases)
        expectRefused(c.document, c.code, c.reason, c.what);
    expectTaken(good, "none of them has done harm");
}

TEST_F(HostWithKeys, OneBitFlippedAnywhereInAFeedIsNotRead) {
    const QByteArray good = signedFeed(goodBody());
    int refused = 0;
    for (qsizetype i = 0; i < good.size(); ++i) {
        QByteArray document = good;
        document[i] = char(document[i] ^ (1 << (i % 8)));
        TXError error;
        bool isEmpty = false;
        TXUpdateFeed feed(QUrl(u"https://e.org/f"_s), {}, nullptr,
                          [&](const TXUpdateFeedPtr &f, const TXError &e) {
                              error = e;
                              isEmpty = f->releaseTracks().isEmpty();
                          });
        feed.parseJSONData(document);
        EXPECT_EQ(error.domain(), TXUpdateErrorDomain) << i;
        EXPECT_TRUE(isEmpty) << i;
        refused += error ? 1 : 0;
    }
    EXPECT_EQ(refused, good.size());
}

TEST_F(HostWithKeys, SignedFeedServedAsTheOtherFormatIsRefused) {
    expectRefused(HttpReply::file(signedFeed(goodBody()), "text/plain"), TXUpdateErrorFeedNotGenuine,
                  notGenuine);
    const QByteArray xml =
        signedFeed(appcastItem(""), {0}, {"org.example.Host", "release", noon, 60}, FeedFormat::Xml);
    expectRefused(HttpReply::json(xml), TXUpdateErrorFeedNotGenuine, notGenuine);
}

TEST_F(HostWithKeys, SerialNeverGoesBack) {
    expectTaken(feedAt(noon - 100));
    expectRefused(feedAt(noon - 101), TXUpdateErrorFeedOlder, older);
    expectTaken(feedAt(noon - 100), "the same one again");
    expectTaken(signedFeed(goodBody(), {1}, {"org.example.Host", "release", noon - 99, 60}), "another key");
    expectRefused(feedAt(noon - 100), TXUpdateErrorFeedOlder, older, "whichever key signed");
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon - 99));
    // A feed that was refused for another reason is not remembered.
    expectRefused(feedAt(noon + 2 * day), TXUpdateErrorFeedAheadOfClock, ahead);
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon - 99));
}

TEST_F(HostWithKeys, OfFeedsThatTwoProcessesReceiveAtOnceNoneGoesBack) {
    QProcess receivers[2];
    for (int i = 0; i < 2; ++i) // serials for which this machine's clock is no matter
        receivers[i].start(helpersFolder() + u"/feed_receiver"_s, {QString::number(i + 1), u"300"_s});
    for (QProcess &receiver : receivers) {
        ASSERT_TRUE(receiver.waitForFinished(100000));
        EXPECT_EQ(receiver.exitCode(), 0) << receiver.readAllStandardError().constData();
    }
}

TEST_F(HostWithKeys, FeedIsOlderThanOneThatAnotherProcessReceivesMeanwhile) {
    expectTaken(feedAt(noon - 2)); // the first request stores the installation's identifier as well
    FaultFileSystem files;
    const QString settings = tx::UserDefaults::standard().filePath();
    bool isReceived = false;
    files.observer = [&](const QString &operation, const QString &) {
        if (operation != u"lock"_s || std::exchange(isReceived, true))
            return;
        EXPECT_FALSE(
            tx::UserDefaults(settings).setValue(u"TXUpdateFeedSerial-release"_s, QString::number(noon)));
    };
    expectRefused(feedAt(noon - 1), TXUpdateErrorFeedOlder, older);
    EXPECT_TRUE(isReceived);
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon));
    // Without the lock, what is known decides.
    files.failOn(u"lock"_s, EACCES);
    expectRefused(feedAt(noon - 1), TXUpdateErrorFeedOlder, older);
    expectTaken(feedAt(noon + 1));
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon));
}

TEST_F(HostWithKeys, EachNameHasASerialOfItsOwn) {
    expectTaken(feedAt(noon));
    becomeHostWith({keyText(key(0))}, "<key>TXUpdateFeedName</key><string>beta</string>");
    expectTaken(feedAt(noon - 500, 60, "beta"));
    expectRefused(feedAt(noon), TXUpdateErrorFeedNotGenuine, notGenuine, "the release's as beta's");
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon));
    EXPECT_EQ(tx::storedSerial("beta"), uint64_t(noon - 500));
}

TEST_F(HostWithKeys, MemoryBeginsAnewWhereSettingsAreLostOrNonsense) {
    expectTaken(feedAt(noon));
    const QString settings = tx::UserDefaults::standard().filePath();
    ASSERT_TRUE(QFile::remove(settings));
    expectTaken(feedAt(noon - day));
    EXPECT_EQ(tx::storedSerial("release"), uint64_t(noon - day));
    ASSERT_FALSE(tx::UserDefaults::standard().setValue(u"TXUpdateFeedSerial-release"_s, u"-1"_s));
    EXPECT_FALSE(tx::storedSerial("release"));
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("TXUpdateFeedSerial-release is not a serial"));
    expectTaken(feedAt(noon - 2 * day));
}

TEST_F(HostWithKeys, SettingsThatCannotBeWrittenDoNotKeepAFeedFromBeingRead) {
    FaultFileSystem files;
    files.failOn(u"replaceFile"_s, ENOSPC);
    expectTaken(feedAt(noon));
    EXPECT_FALSE(tx::storedSerial("release"));
}

TEST_F(HostWithKeys, FeedsFromTheFutureLockNobodyOut) {
    int taken = 0;
    for (int64_t i = 0; i < 400; ++i) {
        const FetchedFeed fetched = get(feedAt(noon + i * day));
        taken += builds(fetched).isEmpty() ? 0 : 1;
        if (i > 1) {
            EXPECT_EQ(fetched.error.code(), TXUpdateErrorFeedAheadOfClock) << i;
        }
    }
    EXPECT_EQ(taken, 2) << "now, and one day ahead, which clocks may be wrong by";
    at(noon + day + 1);
    expectTaken(feedAt(noon + day + 1), "a day later all is well");
    // Nor is one that was stored while the clock was wrong.
    at(noon + 4000 * day);
    expectTaken(feedAt(noon + 4000 * day));
    at(noon + 2 * day);
    expectTaken(feedAt(noon + 2 * day));
    EXPECT_THAT(logLines().join(u'\n').toStdString(),
                testing::HasSubstr("is dated more than a day after now, and does not count"));
    expectRefused(feedAt(noon + day), TXUpdateErrorFeedOlder, older, "the memory goes on from there");
}

TEST_F(HostWithKeys, LostClockIsTakenForTheDateOfTheBuild) {
    const QByteArray built = "<key>TXUpdateBuildDate</key><string>2026-11-22T00:00:00Z</string>";
    becomeHostWith({keyText(key(0))}, built);
    at(0);
    expectTaken(feedAt(noon), "half a day after the build");
    expectRefused(feedAt(noon + day), TXUpdateErrorFeedAheadOfClock, ahead);
    const FetchedFeed refused = get(feedAt(noon + day));
    EXPECT_EQ(refused.error.localizedRecoverySuggestion(),
              u"Set the date and the time of this computer, then try again."_s);
    at(4102444800); // 2100
    expectRefused(feedAt(noon), TXUpdateErrorFeedExpired, u"It has expired."_s);
    at(noon + day);
    expectTaken(feedAt(noon + day), "the clock is right again");
}

TEST_F(HostWithKeys, ExpiredFeedIsRefusedFromTheSecondAfterItsLast) {
    const QByteArray feed = feedAt(noon, 10);
    at(noon + 10 * day);
    expectTaken(feed);
    at(noon + 10 * day + 1);
    expectRefused(feed, TXUpdateErrorFeedExpired, u"It has expired."_s);
    at(noon + 10000 * day);
    expectTaken(signedFeed(goodBody(), {0}, {"org.example.Host", "release", noon + 1, {}}), "never expires");
}

TEST_F(HostWithKeys, NameThatIsSetWithTheAddressIsTheOneThatCounts) {
    ASSERT_FALSE(tx::UserDefaults::standard().setValue(TXUpdatePrefFeedNameKey, u"my beta"_s));
    expectTaken(feedAt(noon, 60, "my beta"));
    expectRefused(feedAt(noon), TXUpdateErrorFeedNotGenuine, notGenuine);
    ASSERT_FALSE(tx::UserDefaults::standard().remove(TXUpdatePrefFeedNameKey));
    expectTaken(feedAt(noon - day), "a name of its own has a memory of its own");
}

TEST_F(HostWithKeys, MalformedKeysAskNobodyForAnything) {
    for (const Keys &keys :
         {Keys{"minisign:nonsense"}, Keys{keyText(key(0)), keyText(key(0))}, Keys(17, keyText(key(0)))}) {
        becomeHostWith(keys);
        const FetchedFeed fetched = fetchFeed(QUrl(server.url(u"/feed"_s)));
        EXPECT_EQ(fetched.error.domain(), TXUpdateErrorDomain);
        EXPECT_EQ(fetched.error.code(), TXUpdateErrorKeysMalformed);
        EXPECT_EQ(fetched.error.localizedDescription(), feedNotVerified);
        EXPECT_THAT(fetched.error.localizedFailureReason().toStdString(),
                    testing::StartsWith("The keys of this application are malformed: "));
        // A document that arrives in another way is not parsed either.
        TXError error;
        TXUpdateFeed feed(QUrl(u"https://e.org/f"_s), {}, nullptr,
                          [&](const TXUpdateFeedPtr &, const TXError &e) { error = e; });
        feed.parseJSONData(signedFeed(goodBody()));
        EXPECT_EQ(error.code(), TXUpdateErrorKeysMalformed);
    }
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST_F(HostWithKeys, EntriesWithoutAUsableSignatureAreLeftOut) {
    const auto texts = archiveTexts(archive, "1043");
    std::vector<std::string> nine(9, texts[0]);
    const QJsonObject good = entryFor(u"1043"_s, archiveURL, texts);
    const auto with = [&good](const QJsonValue &signature) {
        QJsonObject entry = good;
        entry.insert(u"signature"_s, signature);
        return entry;
    };
    const QString text = QString::fromStdString(texts[0]);
    struct Case {
        const char *what;
        QJsonObject entry;
        const char *reason;
    };
    const Case cases[] = {
        {"none", entryFor(u"1043"_s, archiveURL, {}), "there is no signature"},
        {"null", with(QJsonValue()), "there is no signature"},
        {"empty", with(u""_s), "there is no signature"},
        {"empty list", with(QJsonArray()), "there is no signature"},
        {"number", with(7), "no usable signature: "},
        {"object", with(QJsonObject{{u"a"_s, text}}), "no usable signature: "},
        {"a list with a number", with(QJsonArray{text, 7}), "no usable signature: "},
        {"an empty one at the end", with(QJsonArray{text, u""_s}), "no usable signature: "},
        {"an empty one at the beginning", with(QJsonArray{u""_s, text}), "no usable signature: "},
        {"a list in a list", with(QJsonArray{QJsonArray{text}}), "no usable signature: "},
        {"two in one text", with(text + text), "no usable signature: "},
        {"as in an appcast", with(QString(text).replace(u"\n"_s, u"\\n"_s)), "no usable signature: "},
        {"nine", entryFor(u"1043"_s, archiveURL, nine), "at most 8 signatures"},
        {"too long", with(QString(70000, u'x')), "at most 64 KiB"},
        {"too long in a list", with(QJsonArray{QString(70000, u'x')}), "at most 64 KiB"},
        {"somebody else's", entryFor(u"1043"_s, archiveURL, archiveTexts(archive, "1043", {2})),
         "is by one of the application's keys"},
        {"another build's", entryFor(u"1044"_s, archiveURL, texts), "for build \"1043\""},
        {"another feed's", entryFor(u"1043"_s, archiveURL, archiveTexts(archive, "1043", {0}, "beta")),
         "for the feed \"beta\""},
        {"a feed's",
         with(QString::fromStdString(
             signText(key(0), archive.toStdString(),
                      tx::trust::feedComment({"org.example.Host", "release", uint64_t(noon), {}})))),
         "is by one of the application's keys"},
    };
    const auto trusted = tx::hostTrust();
    ASSERT_TRUE(trusted);
    QStringList reasons;
    tx::ReaderContext context = tx::ReaderContext::forHost(QUrl(u"https://e.org/f"_s));
    context.trust = &*trusted;
    context.isSigned = true;
    context.skipped = [&](const tx::SkippedEntry &entry) { reasons << entry.reason; };
    for (const Case &c : cases) {
        reasons.clear();
        const auto tracks = tx::readJsonFeed(feedOf({c.entry, good}), context);
        ASSERT_TRUE(tracks) << c.what;
        const QList<TXUpdatePtr> updates = (*tracks)[u"release"_s]->updates();
        ASSERT_EQ(updates.size(), 1) << c.what;
        EXPECT_TRUE(updates.first()->isSigned());
        ASSERT_EQ(reasons.size(), 1) << c.what;
        EXPECT_THAT(reasons.first().toStdString(), testing::HasSubstr(c.reason)) << c.what;
        EXPECT_EQ(builds(get(signedFeed(feedOf({c.entry})))), QStringList()) << c.what;
    }
}

TEST(PaddedDocument, RoomInFrontIsNotTakenForRoomBehind) {
    QByteArray document(1000, ' ');
    document.squeeze();
    document.remove(0, 500);
    const char *const before = document.constData();
    const tx::PaddedDocument padded(std::move(document));
    EXPECT_EQ(padded.size(), 500U);
    EXPECT_NE(padded.view().data(), before) << "there is no room behind it: it was copied";
}

TEST_F(HostWithKeys, EntryMayHaveEightSignaturesOfWhichOthersKeysAreSkipped) {
    const auto texts = archiveTexts(archive, "1043", {2, 2, 2, 0, 2, 1, 2, 2}, "release");
    const FetchedFeed fetched = get(signedFeed(feedOf({entryFor(u"1043"_s, archiveURL, texts)})));
    ASSERT_EQ(builds(fetched), QStringList{u"1043"_s});
    EXPECT_TRUE(fetched.feed->recommendedUpdate()->isSigned());
}

TEST_F(HostWithKeys, AppcastNamesSignaturesInAnAttributeOrAnElement) {
    becomeHostWith({keyText(key(0)), plainKeyText(key(1))}, "<key>TXUpdateRequiresSignedFeed</key><false/>");
    const std::string bytes = archive.toStdString();
    const trust::SignatureBytes signature = key(1).sign(bytes);
    const QByteArray plain = QByteArray::fromStdString(trust::base64(signature.data(), signature.size()));
    const QByteArray text = escaped(archiveTexts(archive, "1043"));
    const QByteArray length = "length=\"" + QByteArray::number(archive.size()) + "\"";
    struct Case {
        QByteArray attributes, elements;
        bool isTaken;
    };
    const Case cases[] = {
        {"txupdate:signature=\"" + text + "\"", {}, true},
        {{}, "<txupdate:signature>" + text + "</txupdate:signature>", true},
        {{}, "<txupdate:signature>\n" + text + "\n</txupdate:signature>", true},
        {"txupdate:signature=\"" + text + text + "\"", {}, true},
        {"sparkle:edSignature=\"" + plain + "\" " + length, {}, true},
        {"txupdate:signature=\"" + text + "\" sparkle:edSignature=\"nonsense\"", {}, true},
        {{}, {}, false},
        {"sparkle:edSignature=\"" + plain + "\"", {}, false},
        {"sparkle:edSignature=\"" + plain + "\" length=\"0\"", {}, false},
        {"sparkle:edSignature=\" " + plain + "\" " + length, {}, false},
        {"txupdate:signature=\"" + QByteArray(text).replace("\\n", "\n") + "\"", {}, false},
        {"txupdate:signature=\"nonsense\" sparkle:edSignature=\"" + plain + "\" " + length, {}, false},
        {"sparkle:signature=\"" + text + "\"", {}, false},
    };
    for (const Case &c : cases) {
        const QByteArray item = appcastItem(c.attributes, c.elements);
        const FetchedFeed fetched = get(HttpReply::file(item, "application/rss+xml"));
        EXPECT_EQ(builds(fetched), c.isTaken ? QStringList{u"1043"_s} : QStringList()) << item.constData();
        if (c.isTaken && !builds(fetched).isEmpty()) {
            EXPECT_TRUE(fetched.feed->recommendedUpdate()->isSigned()) << item.constData();
        }
    }
    becomeHostWith({keyText(key(0))}, "<key>TXUpdateRequiresSignedFeed</key><false/>");
    EXPECT_TRUE(
        builds(get(HttpReply::file(appcastItem(cases[4].attributes), "application/rss+xml"))).isEmpty())
        << "without a plain key the plain signature does not count";
}

TEST_F(HostWithKeys, EntryWithAPageOnlyIsKeptWhereTheFeedIsSigned) {
    const QByteArray body = feedOf({QJsonObject{
        {u"type"_s, u"build"_s}, {u"build"_s, u"1043"_s}, {u"webpageURL"_s, u"https://e.org/"_s}}});
    const FetchedFeed fetched = get(signedFeed(body));
    ASSERT_EQ(builds(fetched), QStringList{u"1043"_s});
    EXPECT_FALSE(fetched.feed->recommendedUpdate()->isSigned());
    EXPECT_FALSE(fetched.feed->recommendedUpdate()->canBeDownloaded());
    becomeHostWith({keyText(key(0))}, "<key>TXUpdateRequiresSignedFeed</key><false/>");
    EXPECT_TRUE(builds(get(signedFeed(body))).isEmpty()) << "its signature is not looked at";
}

TEST_F(HostWithKeys, LineIsDroppedUnreadWhereFeedsAreNotVerified) {
    const QByteArray good = signedFeed(goodBody());
    QByteArray forged = good;
    forged.replace(forged.indexOf("untrusted"), 9, "UNTRUSTED");
    for (const bool hasKeys : {true, false}) {
        if (hasKeys)
            becomeHostWith({keyText(key(0))}, "<key>TXUpdateRequiresSignedFeed</key><false/>");
        else
            becomeHost(u"1042"_s);
        for (const QByteArray &document : {good, forged, goodBody()}) {
            const FetchedFeed fetched = get(document);
            ASSERT_EQ(builds(fetched), QStringList{u"1043"_s}) << fetched.error.toString().toStdString();
            EXPECT_EQ(fetched.feed->releaseTracks().keys(), QStringList{u"release"_s});
            EXPECT_EQ(fetched.feed->recommendedUpdate()->isSigned(), hasKeys);
        }
        EXPECT_FALSE(tx::storedSerial("release")) << "nothing is remembered of them";
    }
}

} // namespace
