// SPDX-License-Identifier: MIT
// txupdate publish to real servers, through rclone.
#include "tests/tools/publish/publishtest.h"
#include "tests/tools/publish/remotes.h"
#include "trust/archives.h"
#include "trust/feeds.h"

using namespace Qt::StringLiterals;
using namespace tx::test;
using namespace tx::trust;

namespace {

class RemoteTest : public PublishTest, public testing::WithParamInterface<RemoteServer::Kind> {
protected:
    RemoteTest()
        : remote(GetParam(), site()) {}

    /// Where applications get the files.
    [[nodiscard]] QString base() const { return remote.url().isNull() ? server.url(u"/"_s) : remote.url(); }
    ProcessResult at(const QStringList &words, const QStringList &environment = {}) {
        return command(
            words + QStringList{u"--to"_s, remote.remote(), u"--url"_s, base(), u"--key"_s, path(u"one"_s)},
            remote.environment() + environment);
    }
    ProcessResult publishThere(const QString &build, const QStringList &more = {}) {
        makeNext(build);
        return at(QStringList{u"publish"_s, path(u"next/My.app"_s)} + more);
    }
    QStringList buildsThere() {
        QStringList result;
        for (const QJsonValue &entry :
             QJsonDocument::fromJson(remote.content(u"feed.json"_s)).object()[u"release"_s].toArray())
            result << entry[u"build"_s].toString();
        return result;
    }
    /// The feed that a host gets verifies, and so does each archive that it names.
    void expectGoodFeed(const QStringList &buildsThatMayBe) {
        QByteArray document = remote.content(u"feed.json"_s);
        const PublicKeys keys = keysOf({keyText(key(0)), keyText(key(1))});
        const QJsonArray list = QJsonDocument::fromJson(document).object()[u"release"_s].toArray();
        const auto verified = VerifiedFeed::verify(keys, {document.data(), size_t(document.size())},
                                                   {"org.example.Host", "release"});
        ASSERT_TRUE(verified) << verified.fault().what;
        QStringList names;
        for (const QJsonValue &entry : list) {
            names << entry[u"build"_s].toString();
            const auto proof =
                ArchiveProof::find(keys, {{entry[u"signature"_s].toString().toStdString()}, {}},
                                   {"org.example.Host", names.last().toStdString(), {}});
            ASSERT_TRUE(proof) << proof.fault().what;
            const QByteArray archive = remote.content(QUrl(entry[u"downloadURL"_s].toString()).fileName());
            DigestStream stream;
            stream.add(archive.constData(), size_t(archive.size()));
            EXPECT_FALSE(proof->check(stream)) << names.last().toStdString();
        }
        EXPECT_TRUE(buildsThatMayBe.contains(names.join(u' '))) << names.join(u' ').toStdString();
    }

    RemoteServer remote;
};

using PublishToRemote = RemoteTest;

TEST_P(PublishToRemote, BuildsComeThereAndAreVerifiedFromThere) {
    ASSERT_TRUE(remote.isRunning());
    writeFile(path(u"n.html"_s), "<p>new</p>");
    ProcessResult result = publishThere(u"1042"_s, {u"--notes"_s, path(u"n.html"_s)});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(result.errors, QByteArray());
    EXPECT_EQ(remote.names(), (QStringList{u"My-1042.html"_s, u"My-1042.tgz"_s, u"feed.json"_s}));
    expectGoodFeed({u"1042"_s});
    result = publishThere(u"1043"_s);
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    expectGoodFeed({u"1043"_s});
    EXPECT_FALSE(remote.content(u"My-1042.tgz"_s).isEmpty());
    const QByteArray feedBefore = remote.content(u"feed.json"_s);
    expectSaid(publishThere(u"1043"_s), 0, "build 1043 is published already: nothing to do");
    EXPECT_EQ(remote.content(u"feed.json"_s), feedBefore);
    expectRefused(publishThere(u"1042.5"_s), "is not greater than build 1043");
    const ProcessResult installed = command(
        {u"feed"_s, u"validate"_s, base() + u"feed.json"_s, u"--archives"_s, u"--app"_s, path(u"My.app"_s)});
    EXPECT_THAT(installed.output.toStdString(),
                testing::HasSubstr("1 archives fetched, 0 cannot be installed"));
    // Without a GET the files are read back through rclone.
    makeNext(u"1044"_s);
    result = command({u"publish"_s, path(u"next/My.app"_s), u"--to"_s, remote.remote(), u"--url"_s,
                      u"https://nowhere.invalid/"_s, u"--key"_s, path(u"one"_s), u"--not-served"_s},
                     remote.environment());
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    expectGoodFeed({u"1044"_s});
}

TEST_P(PublishToRemote, KilledAtEachStepTheFeedIsNeverWrong) {
    ASSERT_TRUE(remote.isRunning());
    ASSERT_EQ(publishThere(u"1042"_s).status, 0);
    const QByteArray feedBefore = remote.content(u"feed.json"_s);
    makeNext(u"1043"_s);
    const auto drive = [this](int point, const QString &how) {
        return runProcess(helpersFolder() + u"/publish_driver"_s,
                          {path(u"next/My.app"_s), remote.remote(), base(), path(u"one.key"_s),
                           u"1800000000"_s, QString::number(point), how},
                          {},
                          QStringList{u"XDG_CACHE_HOME="_s + path(u"cache"_s), u"TXUPDATE_LOG_LEVEL=1"_s} +
                              remote.environment());
    };
    ASSERT_EQ(drive(0, u"never"_s).status, 0);
    const QStringList names = remote.names();
    const QByteArray feedAfter = remote.content(u"feed.json"_s);
    int point = 1;
    for (;; ++point) {
        SCOPED_TRACE(point);
        remote.put(u"feed.json"_s, feedBefore);
        remote.remove(u"My-1043.tgz"_s);
        const ProcessResult result = drive(point, u"kill"_s);
        if (result.status == 0)
            break;
        EXPECT_EQ(result.status, 128 + SIGKILL) << result.errors.constData();
        expectGoodFeed({u"1042"_s, u"1043"_s});
        const ProcessResult again = drive(0, u"never"_s);
        EXPECT_EQ(again.status, 0) << again.errors.constData();
        EXPECT_EQ(remote.names(), names);
        EXPECT_EQ(remote.content(u"feed.json"_s), feedAfter);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GE(point, 3); // the archive made, uploaded, and the feed replaced
}

/// rclone removes the earlier file before it gives the new one its name, where the server cannot rename over
/// a file.
TEST_P(PublishToRemote, FeedThatIsBetweenTwoNamesIsFound) {
    ASSERT_TRUE(remote.isRunning());
    ASSERT_EQ(publishThere(u"1042"_s, {u"--max-system"_s, u"12"_s}).status, 0);
    if (GetParam() == RemoteServer::Kind::Sftp) {
        const QByteArray feedBefore = remote.content(u"feed.json"_s);
        remote.remove(u"feed.json"_s);
        remote.put(u".feed.json.txupdate-new"_s, feedBefore);
        // The same build again ends what was begun, ...
        const ProcessResult same = publishThere(u"1042"_s, {u"--max-system"_s, u"12"_s});
        EXPECT_EQ(same.status, 0) << same.errors.constData();
        EXPECT_EQ(remote.content(u"feed.json"_s), feedBefore);
        // ... and a new one keeps what was in it.
        remote.remove(u"feed.json"_s);
        remote.put(u".feed.json.txupdate-new"_s, feedBefore);
        EXPECT_EQ(publishThere(u"1043"_s, {u"--min-system"_s, u"13"_s}).status, 0);
        EXPECT_EQ(buildsThere(), (QStringList{u"1043"_s, u"1042"_s}));
        EXPECT_FALSE(remote.names().contains(u".feed.json.txupdate-new"_s));
        // A part of a feed is none.
        remote.put(u".feed.json.txupdate-new"_s, feedBefore.left(feedBefore.size() / 2));
        EXPECT_EQ(publishThere(u"1044"_s, {u"--min-system"_s, u"13"_s}).status, 0);
        EXPECT_EQ(buildsThere(), (QStringList{u"1044"_s, u"1042"_s}));
    }
    // Servers that replace at once have no other name.
    EXPECT_EQ(remote.names().filter(u"txupdate"_s), QStringList());
}

TEST_P(PublishToRemote, WithdrawnAndSignedAgain) {
    ASSERT_TRUE(remote.isRunning());
    ASSERT_EQ(publishThere(u"1042"_s, {u"--max-system"_s, u"12"_s}).status, 0);
    ASSERT_EQ(publishThere(u"1043"_s, {u"--min-system"_s, u"13"_s}).status, 0);
    const QStringList application{u"--identifier"_s, u"org.example.Host"_s};
    ProcessResult result =
        at(QStringList{u"withdraw"_s, u"--build"_s, u"1043"_s, u"--remove-archives"_s} + application);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    expectGoodFeed({u"1042"_s});
    EXPECT_EQ(remote.names(), (QStringList{u"My-1042.tgz"_s, u"feed.json"_s}));
    const QByteArray feedBefore = remote.content(u"feed.json"_s);
    result = at(QStringList{u"feed"_s, u"resign"_s} + application);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    expectGoodFeed({u"1042"_s});
    EXPECT_NE(remote.content(u"feed.json"_s), feedBefore);
}

INSTANTIATE_TEST_SUITE_P(On, PublishToRemote, testing::ValuesIn(RemoteServer::kinds()),
                         [](const auto &one) { return std::string(RemoteServer::nameOf(one.param)); });

using PublishWithoutRemote = PublishTest;

TEST_F(PublishWithoutRemote, WhatIsMissingIsSaid) {
    const auto to = [this](const QString &remote, const QStringList &environment) {
        return command({u"publish"_s, path(u"next/My.app"_s), u"--to"_s, remote, u"--url"_s,
                        server.url(u"/"_s), u"--key"_s, path(u"one"_s)},
                       environment);
    };
    writeFile(path(u"rclone.conf"_s), "[dead]\ntype = webdav\nvendor = other\nurl = http://127.0.0.1:1/\n");
    const QString configuration = u"RCLONE_CONFIG="_s + path(u"rclone.conf"_s);
    expectRefused(to(u"dead:x"_s, {u"PATH=/nowhere"_s, configuration}),
                  "this target needs the program rclone, which is not in PATH");
    expectRefused(to(u"none:x"_s, {configuration}), "rclone cannot reach none:x/: ");
    expectRefused(to(u"dead:x"_s, {configuration, u"RCLONE_RETRIES=1"_s, u"RCLONE_LOW_LEVEL_RETRIES=1"_s}),
                  "rclone cannot ");
}

} // namespace
