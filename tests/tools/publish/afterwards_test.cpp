// SPDX-License-Identifier: MIT
// txupdate init, withdraw and feed resign.
#include "publish/configuration.h"
#include "tests/tools/publish/publishtest.h"

using namespace Qt::StringLiterals;
using namespace tx::test;
using namespace tx::trust;

namespace {

class Withdraw : public PublishTest {
protected:
    ProcessResult withdraw(const QString &build, const QStringList &more = {}) {
        return command(
            QStringList{u"withdraw"_s, u"--build"_s, build, u"--identifier"_s, u"org.example.Host"_s} +
            place() + more);
    }
    void publishTwo() {
        publishEarlier({u"--max-system"_s, u"12"_s});
        ASSERT_EQ(publish({u"--min-system"_s, u"13"_s}).status, 0);
    }
};

TEST_F(Withdraw, BuildIsTakenOutAndTheRestStays) {
    publishTwo();
    const ProcessResult result = withdraw(u"1043"_s);
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("- build 1043, My-1043.tgz"));
    EXPECT_EQ(builds(), QStringList{u"1042"_s});
    EXPECT_EQ(verifyFeed(feedUrl()).status, 0);
    EXPECT_TRUE(QFileInfo::exists(site(u"My-1043.tgz"_s)));
    // Withdrawing the last build leaves a feed without builds.
    expectSaid(withdraw(u"1042"_s), 0, "the track has no build left");
    EXPECT_EQ(builds(), QStringList());
    EXPECT_EQ(verifyFeed(feedUrl()).status, 0);
}

TEST_F(Withdraw, ArchivesAreRemovedOnRequestUnlessAnotherEntryNamesThem) {
    publishTwo();
    ASSERT_EQ(withdraw(u"1043"_s, {u"--remove-archives"_s}).status, 0);
    EXPECT_FALSE(QFileInfo::exists(site(u"My-1043.tgz"_s)));
    EXPECT_TRUE(QFileInfo::exists(site(u"My-1042.tgz"_s)));
    QByteArray feedBytes = readFile(site(u"feed.json"_s));
    const QByteArray entry = "{\"type\":\"post\",\"url\":\"https://e.org\",\"downloadURL\":\"" +
                             server.url(u"/My-1042.tgz"_s).toUtf8() + "\"}";
    feedBytes.replace("\"release\": [", "\"beta\": [" + entry + "],\n\"release\": [");
    writeFile(site(u"feed.json"_s), feedBytes);
    ASSERT_EQ(withdraw(u"1042"_s, {u"--remove-archives"_s}).status, 0);
    EXPECT_TRUE(QFileInfo::exists(site(u"My-1042.tgz"_s)));
}

TEST_F(Withdraw, BuildThatIsNotThereIsRefused) {
    publishTwo();
    const QStringList before = treeOf(site());
    expectRefused(withdraw(u"1041"_s),
                  "the feed has no build 1041 in the track \"release\". It has: 1043, 1042");
    expectRefused(withdraw(u"1043"_s, {u"--track"_s, u"beta"_s}), "It has: none");
    expectSaid(withdraw(u"1043"_s, {u"--dry-run"_s}), 0, "- build 1043");
    EXPECT_EQ(treeOf(site()), before);
}

class Resign : public PublishTest {
protected:
    ProcessResult resign(const QStringList &more = {}) {
        return command(QStringList{u"feed"_s, u"resign"_s} + place() + more);
    }
};

TEST_F(Resign, SerialAndExpiryAreNewAndNothingElse) {
    publishEarlier({u"--expires"_s, u"1"_s});
    const QByteArray before = readFile(site(u"feed.json"_s));
    const ProcessResult result = resign({u"--app"_s, path(u"My.app"_s), u"--expires"_s, u"30"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QByteArray after = readFile(site(u"feed.json"_s));
    EXPECT_EQ(after.mid(after.indexOf('\n')), before.mid(before.indexOf('\n')));
    const auto claimOf = [](QByteArray document) {
        const auto verified =
            VerifiedFeed::verify(keysOf({keyText(key(0))}), {document.data(), size_t(document.size())},
                                 {"org.example.Host", "release"});
        EXPECT_TRUE(verified) << verified.fault().what;
        return verified->claim();
    };
    EXPECT_GT(claimOf(after).serial, claimOf(before).serial);
    EXPECT_EQ(*claimOf(after).expires, int64_t(claimOf(after).serial) + 30 * 24 * 3600);
}

TEST_F(Resign, WhatItNeedsIsSaid) {
    expectRefused(resign({u"--identifier"_s, u"org.example.Host"_s}), "there is no feed.json at ");
    publishEarlier();
    const QByteArray before = readFile(site(u"feed.json"_s));
    expectRefused(resign(), "for which application the feed is signed is not known");
    expectRefused(command({u"feed"_s, u"resign"_s, u"--to"_s, site(), u"--url"_s, server.url(u"/"_s)}),
                  "there is no key: name it with --key");
    EXPECT_EQ(readFile(site(u"feed.json"_s)), before);
}

class Init : public PublishTest {
protected:
    /// Runs "init" in a folder of its own, without a terminal.
    ProcessResult init(const QStringList &more) {
        QDir().mkpath(path(u"project"_s));
        return runProcess(u"/bin/sh"_s,
                          QStringList{u"-c"_s, u"cd \"$0\" && exec \"$@\" </dev/null"_s, path(u"project"_s),
                                      programsFolder() + u"/txupdate"_s, u"init"_s, u"--no-passphrase"_s} +
                              more,
                          {}, {u"TXUPDATE_LOG_LEVEL=1"_s});
    }
    ProcessResult inProject(const QStringList &words) {
        return runProcess(u"/bin/sh"_s,
                          QStringList{u"-c"_s, u"cd \"$0\" && exec \"$@\""_s, path(u"project"_s),
                                      programsFolder() + u"/txupdate"_s} +
                              words,
                          {}, {u"XDG_CACHE_HOME="_s + path(u"cache"_s), u"TXUPDATE_LOG_LEVEL=1"_s});
    }
    [[nodiscard]] QStringList usual() const {
        return {u"--identifier"_s, u"org.example.Host"_s, u"--url"_s, server.url(u"/"_s), u"--to"_s, site(),
                u"--bundle"_s,     u"../next/My.app"_s};
    }
};

TEST_F(Init, AfterItPublishNeedsNoOptions) {
    const ProcessResult result = init(usual());
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(namesIn(path(u"project"_s)),
              (QStringList{u"release-spare.key"_s, u"release-spare.pub"_s, u"release.key"_s, u"release.pub"_s,
                           u"txupdate.toml"_s}));
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("<key>TXUpdatePublicKeys</key>"));
    // The application has the keys. Its first feed is empty, signed and readable.
    std::vector<std::string> keys;
    for (const QByteArray &line : result.output.split('\n')) {
        if (line.contains("<string>minisign:"))
            keys.push_back(
                line.mid(line.indexOf('>') + 1, line.lastIndexOf('<') - line.indexOf('>') - 1).toStdString());
    }
    ASSERT_EQ(keys.size(), 2U);
    makeApp(u"My.app"_s, u"1042"_s, keys);
    makeApp(u"next/My.app"_s, u"1043"_s, keys);
    EXPECT_EQ(verifyFeed(feedUrl()).status, 0);
    EXPECT_EQ(builds(), QStringList());
    const ProcessResult published = inProject({u"publish"_s});
    ASSERT_EQ(published.status, 0) << published.errors.constData();
    EXPECT_EQ(builds(), QStringList{u"1043"_s});
    EXPECT_EQ(verifyFeed(feedUrl()).status, 0);
    EXPECT_EQ(inProject({u"feed"_s, u"resign"_s}).status, 0);
    EXPECT_EQ(inProject({u"withdraw"_s, u"--build"_s, u"1043"_s}).status, 0);
    EXPECT_EQ(builds(), QStringList());
}

TEST_F(Init, NothingThatIsThereIsReplaced) {
    ASSERT_EQ(init(usual()).status, 0);
    const QStringList before = treeOf(path(u"project"_s)) + treeOf(site());
    expectRefused(init(usual()), "txupdate.toml is there already");
    EXPECT_EQ(treeOf(path(u"project"_s)) + treeOf(site()), before);
    // Run again: uses the existing keys, and the feed keeps its entries.
    ASSERT_TRUE(QFile::remove(path(u"project/txupdate.toml"_s)));
    const QByteArray keyBefore = readFile(path(u"project/release.key"_s));
    expectSaid(init(usual()), 0, "release.key is there already, and is used");
    EXPECT_EQ(readFile(path(u"project/release.key"_s)), keyBefore);
}

TEST_F(Init, FileOfTheCiSystemPublishes) {
    for (const auto &[system, name] : {std::pair{u"github"_s, u".github/workflows/publish.yml"_s},
                                       std::pair{u"gitlab"_s, u".gitlab-ci.yml"_s}}) {
        QDir(path(u"project"_s)).removeRecursively();
        ASSERT_EQ(init(usual() + QStringList{u"--ci"_s, system}).status, 0);
        const QByteArray file = readFile(path(u"project/"_s + name));
        EXPECT_TRUE(file.contains("txupdate publish\n")) << file.constData();
        EXPECT_TRUE(file.contains("> release.key)")) << file.constData();
        EXPECT_FALSE(file.contains('\t'));
    }
    writeFile(path(u"project/.gitlab-ci.yml"_s), "mine");
    ASSERT_TRUE(QFile::remove(path(u"project/txupdate.toml"_s)));
    expectSaid(init(usual() + QStringList{u"--ci"_s, u"gitlab"_s}), 0, ".gitlab-ci.yml is there already");
    EXPECT_EQ(readFile(path(u"project/.gitlab-ci.yml"_s)), QByteArray("mine"));
}

TEST_F(Init, WhatItNeedsIsSaidAndNothingIsMade) {
    const std::pair<QStringList, const char *> cases[] = {
        {{}, "There is no terminal to answer on: pass --identifier"},
        {{u"--identifier"_s, u"org.example.Host"_s}, "pass --url"},
        {{u"--identifier"_s, u"My App"_s}, "\"My App\" is not an identifier"},
        {{u"--identifier"_s, u"org.example.Host"_s, u"--url"_s, u"http://example.org/"_s},
         "is not an https URL"}};
    for (const auto &[words, part] : cases) {
        expectRefused(init(words), part);
        EXPECT_EQ(namesIn(path(u"project"_s)), QStringList()) << part;
    }
}

TEST(Toml, StringsAreReadAsTheyWereWritten) {
    const QTemporaryDir folder;
    for (const QString &text : {u"plain"_s, u"a \"b\" \\ c"_s, u"line\nand\ttab\x7f"_s, u"größe 日本"_s}) {
        writeFile(folder.filePath(u"t.toml"_s), "track = " + tx::publishing::tomlString(text) + "\n");
        const auto read = tx::publishing::readConfiguration(folder.filePath(u"t.toml"_s));
        ASSERT_TRUE(read) << read.fault().what;
        EXPECT_EQ(read->track, text);
    }
}

} // namespace
