// SPDX-License-Identifier: MIT
// The attacks on updates that docs/security.md lists, with a real server, host and installer.
#include "tests/support/feedserver.h"
#include "tests/tools/txupdate/txupdatetest.h"
#include "tests/trust/signedreleases.h"

#include <map>

using namespace Qt::StringLiterals;
using namespace tx::test;
namespace trust = tx::trust;

namespace {

constexpr int64_t day = 24 * 3600;

/// Build 1042 is installed with two keys. The attacker controls the server.
class AttackOnUpdates : public TxUpdate {
protected:
    const QString app = path(u"Applications/Host.app"_s);
    const ProcessReaper reaper{app + u"/Contents/Linux/Program"_s};
    const int64_t now = QDateTime::currentSecsSinceEpoch();
    FeedServer server;
    QByteArray feed;
    std::map<QByteArray, HttpReply> files;

    AttackOnUpdates() {
        install({keyText(key(0)), keyText(key(1))});
        server.always([this](const HttpRequest &request) {
            if (request.path() == "/feed")
                return HttpReply::json(feed);
            const auto file = files.find(request.path());
            return file == files.end() ? HttpReply{.status = 404} : file->second;
        });
    }
    void install(const Keys &keys) {
        makeBundle(app, {});
        addKeys(app, keys);
    }
    /// Packs a release of this build under this name.
    QByteArray release(const QString &build, const Keys &keys, const QByteArray &name,
                       const QString &identifier = u"org.example.Host"_s) {
        const QString bundle = path(u"staging/Host.app"_s);
        makeBundle(bundle, {.identifier = identifier, .build = build});
        addKeys(bundle, keys);
        makeArchive(path(u"new.tgz"_s), ArchiveKind::Tgz, entriesOf(bundle));
        const QByteArray archive = readFile(path(u"new.tgz"_s));
        files[name] = HttpReply::file(archive);
        return archive;
    }
    QByteArray goodRelease(const QString &build = u"1043"_s, const QByteArray &name = "/new.tgz") {
        return release(build, {keyText(key(0)), keyText(key(1))}, name);
    }
    [[nodiscard]] QJsonObject entry(const QByteArray &archive, const QString &build = u"1043"_s,
                                    const Signers &signers = {0}, const QString &name = u"/new.tgz"_s) const {
        return entryFor(build, server.url(name), archiveTexts(archive, build.toStdString(), signers));
    }
    void publish(const QJsonArray &entries, int64_t time, int64_t days = 60, const Signers &signers = {0},
                 const std::string &bundle = "org.example.Host", const std::string &name = "release") {
        feed = signedFeed(feedOf(entries), signers, {bundle, name, time, days});
    }
    ProcessResult update() {
        return runWhileServing({u"update"_s, u"--app"_s, app, u"--feed"_s, server.url(u"/feed"_s)});
    }
    [[nodiscard]] QString installedBuild() const { return TXBundle(app).infoString(u"CFBundleVersion"_s); }
    /// `words` are part of the expected reason.
    void expectRefused(const char *what, const char *words) {
        const QStringList before = treeOf(app);
        const ProcessResult result = update();
        EXPECT_EQ(result.status, 1) << what << result.output.constData();
        EXPECT_THAT((result.output + result.errors).toStdString(), testing::HasSubstr(words)) << what;
        EXPECT_EQ(treeOf(app), before) << what;
    }
    void expectNothingOffered(const char *what) {
        const ProcessResult result = update();
        EXPECT_EQ(result.status, 0) << what << result.errors.constData();
        EXPECT_TRUE(result.output.contains("is up to date.")) << what << result.output.constData();
    }
    void expectInstalled(const QString &build) {
        const ProcessResult result = update();
        EXPECT_EQ(result.status, 0) << result.output.constData() << result.errors.constData();
        EXPECT_EQ(installedBuild(), build);
    }
    static constexpr const char *notVerified = "The update could not be verified.";
    static constexpr const char *feedRefused = "The update information could not be verified.";
};

TEST_F(AttackOnUpdates, NoneThereIsAnUpdate) {
    publish({entry(goodRelease())}, now);
    expectInstalled(u"1043"_s);
}

TEST_F(AttackOnUpdates, ArbitraryInstallationIsRefusedWhereverItBegins) {
    const QByteArray good = goodRelease();
    const QByteArray evil = release(u"1043"_s, {keyText(key(2))}, "/new.tgz");
    publish({entry(good)}, now);
    expectRefused("another archive", notVerified);
    publish({entry(evil, u"1043"_s, {2})}, now, 60, {2});
    expectRefused("all of it by another key", "It is not signed by the publisher");
    publish({entry(evil, u"1043"_s, {2})}, now + 1);
    expectNothingOffered("an entry by another key in a feed by ours");
    feed = feedOf({entry(evil)});
    expectRefused("no signature of the feed", "It is not signed by the publisher");
    publish({entry(good)}, now + 2);
    feed.replace("1043", "9999");
    expectRefused("a feed that was changed", "It is not what the publisher of this application has signed");
    files["/new.tgz"] = HttpReply::file(good);
    publish({entry(good)}, now + 3);
    expectInstalled(u"1043"_s);
}

TEST_F(AttackOnUpdates, RollbackToAnOlderFeedOrBuildIsRefused) {
    const QByteArray one = goodRelease(u"1043"_s, "/1043.tgz");
    const QByteArray two = goodRelease(u"1044"_s, "/1044.tgz");
    publish({entry(one, u"1043"_s, {0}, u"/1043.tgz"_s)}, now - 100);
    const QByteArray before = feed;
    publish({entry(two, u"1044"_s, {0}, u"/1044.tgz"_s)}, now);
    expectInstalled(u"1044"_s);
    feed = before;
    expectRefused("an older feed", "The server's copy is older");
    publish({entry(one, u"1043"_s, {0}, u"/1043.tgz"_s)}, now + 1);
    expectNothingOffered("an older build");
    publish({entry(one, u"1045"_s, {0}, u"/1043.tgz"_s)}, now + 2);
    expectRefused("an older build under a new number", notVerified);
    EXPECT_EQ(installedBuild(), u"1044"_s);
}

TEST_F(AttackOnUpdates, FastForwardLocksNobodyOut) {
    publish({}, now + 1000 * day);
    expectRefused("a feed from the future", "It is dated more than a day after the time of this computer.");
    publish({entry(goodRelease())}, now);
    expectInstalled(u"1043"_s);
}

TEST_F(AttackOnUpdates, FrozenFeedExpires) {
    publish({}, now - 61 * day, 60);
    expectRefused("an expired feed", "It has expired.");
}

TEST_F(AttackOnUpdates, PartsThatDoNotBelongTogetherAreRefused) {
    const QByteArray one = goodRelease(u"1043"_s, "/1043.tgz");
    const QByteArray two = goodRelease(u"1044"_s, "/1044.tgz");
    publish({entry(two, u"1044"_s, {0}, u"/1043.tgz"_s)}, now);
    expectRefused("one build's archive with another's signature", notVerified);
    QJsonObject mixed = entry(one, u"1044"_s, {0}, u"/1043.tgz"_s);
    publish({mixed}, now + 1);
    expectRefused("an archive signed as another build than it holds", notVerified);
    mixed = entry(one, u"1043"_s, {0}, u"/1043.tgz"_s);
    mixed.insert(u"build"_s, u"1044"_s);
    publish({mixed}, now + 2);
    expectNothingOffered("a signature for another build than the entry's");
    publish({entry(two, u"1044"_s, {0}, u"/1044.tgz"_s)}, now + 3, 60, {0}, "org.example.Host", "beta");
    expectRefused("the feed of another channel", feedRefused);
    // The signature of an archive used as that of a feed, and the reverse.
    publish({entry(one)}, now + 4);
    const QByteArray body = feed.mid(feed.indexOf('\n') + 1);
    const qsizetype begin = feed.indexOf("untrusted"), end = feed.indexOf("\"}],");
    feed.replace(begin, end - begin,
                 QByteArray::fromStdString(trust::escapeLineFeeds(archiveTexts(body, "1043")[0])));
    expectRefused("an archive's signature in the place of the feed's", "It is not signed by the publisher");
    publish({entryFor(u"1043"_s, server.url(u"/1043.tgz"_s),
                      {signText(key(0), one.toStdString(),
                                trust::feedComment({"org.example.Host", "release", uint64_t(now), {}}))})},
            now + 5);
    expectNothingOffered("a feed's signature in the place of an archive's");
    publish({entry(one, u"1043"_s, {0}, u"/1043.tgz"_s)}, now + 6);
    expectInstalled(u"1043"_s);
}

TEST_F(AttackOnUpdates, EndlessDataEndsAtTheSignedSize) {
    const QByteArray good = goodRelease();
    HttpReply endless = HttpReply::file(good + QByteArray(50 << 20, 'x'));
    endless.announcedLength = -1;
    files["/new.tgz"] = endless;
    publish({entry(good)}, now);
    expectRefused("an archive that goes on", notVerified);
    feed = QByteArray(17 << 20, ' ') + feed;
    expectRefused("a feed that goes on", "Could not check for updates");
}

TEST_F(AttackOnUpdates, NothingElseIsInstalledWithIt) {
    // Two applications in one signed archive: only the host's is checked, and the other one is removed.
    makeBundle(path(u"two/Other.app"_s), {.identifier = u"org.example.Other"_s, .build = u"1043"_s});
    makeBundle(path(u"two/Host.app"_s), {.build = u"1043"_s});
    addKeys(path(u"two/Host.app"_s), {keyText(key(0))});
    makeArchive(path(u"new.tgz"_s), ArchiveKind::Tgz,
                entriesOf(path(u"two/Host.app"_s)) + entriesOf(path(u"two/Other.app"_s)));
    const QByteArray archive = readFile(path(u"new.tgz"_s));
    files["/new.tgz"] = HttpReply::file(archive);
    publish({entry(archive)}, now);
    expectInstalled(u"1043"_s);
    EXPECT_EQ(namesIn(path(u"Applications"_s)), QStringList{u"Host.app"_s});
    QList<QByteArray> asked;
    for (const HttpRequest &request : server.requests())
        asked << request.path();
    EXPECT_EQ(asked, (QList<QByteArray>{"/feed", "/new.tgz"})) << "nothing else was fetched";
}

TEST_F(AttackOnUpdates, OtherSoftwareOfTheSamePublisherIsRefused) {
    const QByteArray other = release(u"1043"_s, {keyText(key(0))}, "/new.tgz", u"org.example.Other"_s);
    publish({entry(other)}, now, 60, {0}, "org.example.Other");
    expectRefused("another application's feed", feedRefused);
    publish({entryFor(u"1043"_s, server.url(u"/new.tgz"_s),
                      {signText(key(0), other.toStdString(),
                                trust::archiveComment(
                                    {"org.example.Other", "1043", uint64_t(other.size()), {}}))})},
            now + 1);
    expectNothingOffered("another application's archive");
    publish({entry(other)}, now + 2);
    expectRefused("another application, signed as this one", "Could not find the unarchived application.");
}

TEST_F(AttackOnUpdates, MirrorCanWithholdAndNothingElse) {
    const QByteArray good = goodRelease();
    publish({entry(good)}, now);
    const QByteArray published = feed;
    files.erase("/new.tgz");
    expectRefused("a missing archive", "does not exist");
    files["/new.tgz"] = HttpReply::file(good.chopped(100));
    expectRefused("a part of the archive", notVerified);
    files["/new.tgz"] = HttpReply::file({});
    expectRefused("an empty archive", notVerified);
    feed = {};
    expectRefused("an empty feed", feedRefused);
    feed = published;
    files["/new.tgz"] = HttpReply::file(good);
    expectInstalled(u"1043"_s);
}

TEST_F(AttackOnUpdates, StolenFeedKeySignsNoArchiveAndStolenKeyEndsWithABuildWithoutIt) {
    install({keyText(key(0)), keyText(key(1), "minisign-feed:")});
    const QByteArray evil = release(u"1050"_s, {keyText(key(0))}, "/new.tgz");
    publish({entry(evil, u"1050"_s, {1})}, now, 60, {1});
    expectNothingOffered("an archive by a key for feeds");
    // The first key is stolen. A build that is signed with only the second key ends its use.
    install({keyText(key(0)), keyText(key(1))});
    const QByteArray next = release(u"1043"_s, {keyText(key(1))}, "/1043.tgz");
    publish({entry(next, u"1043"_s, {1}, u"/1043.tgz"_s)}, now + 1, 60, {1});
    expectInstalled(u"1043"_s);
    publish({entry(evil, u"1050"_s, {0})}, now + 2, 60, {0});
    expectRefused("all of it by the stolen key", "It is not signed by the publisher");
}

} // namespace
