// SPDX-License-Identifier: MIT
// txupdate publish to a folder that a server gives out.
#include "publish/configuration.h"
#include "tests/tools/publish/publishtest.h"

#include <QTimeZone>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace tx::test;

namespace {

using Publish = PublishTest;

TEST_F(Publish, FirstBuildMakesASignedFeedThatInstalledApplicationsAccept) {
    const ProcessResult result =
        publish({u"--title"_s, u"My App 2.2 \"é\""_s, u"--date"_s, u"2026-11-01 10:00:00"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(result.errors, QByteArray());
    EXPECT_EQ(namesIn(site()), (QStringList{u".txupdate-publish.lock"_s, u"My-1043.tgz"_s, u"feed.json"_s}));
    const ProcessResult verified = verifyFeed(feedUrl());
    EXPECT_EQ(verified.status, 0) << verified.errors.constData();
    const ProcessResult shown = run(show(feedUrl()));
    const QJsonObject update = json(shown)[u"tracks"_s].toArray()[0][u"updates"_s].toArray()[0].toObject();
    EXPECT_EQ(update.value(u"title"_s).toString(), u"My App 2.2 \"é\""_s);
    EXPECT_EQ(update.value(u"version"_s).toString(), u"1043"_s);
    EXPECT_EQ(update.value(u"displayVersion"_s).toString(), u"2.2"_s);
    EXPECT_EQ(update.value(u"dateString"_s).toString(), u"2026-11-01 10:00:00"_s);
    EXPECT_EQ(update.value(u"fileURL"_s).toString(), server.url(u"/My-1043.tgz"_s));
    const ProcessResult installed =
        command({u"feed"_s, u"validate"_s, feedUrl(), u"--archives"_s, u"--app"_s, path(u"My.app"_s)});
    EXPECT_THAT(installed.output.toStdString(),
                testing::HasSubstr("1 archives fetched, 0 cannot be installed"));
    // The web server's user must be able to read it.
    for (const QString &name : {u"My-1043.tgz"_s, u"feed.json"_s}) {
        struct stat info {};
        ASSERT_EQ(stat(site(name).toUtf8().constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0644U) << name.toStdString();
    }
    // The signature of the entry is one that an application verifies.
    writeFile(path(u"a.minisig"_s), entries().first()[u"signature"_s].toString().toUtf8());
    const ProcessResult archive = command({u"verify"_s, site(u"My-1043.tgz"_s), u"--app"_s, path(u"My.app"_s),
                                           u"--signature"_s, path(u"a.minisig"_s)});
    EXPECT_EQ(archive.status, 0) << archive.errors.constData();
}

TEST_F(Publish, DateIsNowInTheZoneOfFeeds) {
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    ASSERT_EQ(publish({}, {u"one"_s}, {u"TZ=Asia/Tokyo"_s}).status, 0);
    const QDateTime date =
        QDateTime::fromString(entries().first()[u"date"_s].toString(), u"yyyy-MM-dd HH:mm:ss"_s);
    const QDateTime inZone(date.date(), date.time(), QTimeZone("America/Los_Angeles"));
    EXPECT_GE(inZone, before);
    EXPECT_LE(inZone, QDateTime::currentDateTimeUtc().addSecs(1));
}

TEST_F(Publish, EntrySaysAllThatWasAskedFor) {
    writeFile(path(u"2.2.html"_s), "<p>What is new.</p>");
    const ProcessResult result =
        publish({u"--description"_s,     u"What is new."_s, u"--notes"_s,        path(u"2.2.html"_s),
                 u"--notes-size"_s,      u"{640, 480}"_s,   u"--autodownload"_s, u"no"_s,
                 u"--min-build"_s,       u"1000"_s,         u"--max-build"_s,    u"1042"_s,
                 u"--min-system"_s,      u"12"_s,           u"--max-system"_s,   u"13.9"_s,
                 u"--display-version"_s, u"2.2 rc"_s,       u"--track"_s,        u"beta"_s,
                 u"--archive"_s,         u"zip"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QJsonObject entry = entries(u"beta"_s).first().toObject();
    const std::pair<QString, QString> expected[] = {{u"type"_s, u"build"_s},
                                                    {u"title"_s, u"My App 2.2 rc"_s},
                                                    {u"build"_s, u"1043"_s},
                                                    {u"version"_s, u"2.2 rc"_s},
                                                    {u"description"_s, u"What is new."_s},
                                                    {u"releaseNotesURL"_s, server.url(u"/My-1043.html"_s)},
                                                    {u"preferredDisplaySize"_s, u"{640, 480}"_s},
                                                    {u"downloadURL"_s, server.url(u"/My-1043.zip"_s)},
                                                    {u"autodownload"_s, u"no"_s},
                                                    {u"minBuild"_s, u"1000"_s},
                                                    {u"maxBuild"_s, u"1042"_s},
                                                    {u"minSystemVersion"_s, u"12"_s},
                                                    {u"maxSystemVersion"_s, u"13.9"_s}};
    for (const auto &[name, value] : expected)
        EXPECT_EQ(entry.value(name).toString(), value) << name.toStdString();
    EXPECT_EQ(readFile(site(u"My-1043.html"_s)), QByteArray("<p>What is new.</p>"));
}

TEST_F(Publish, TwoKeysSignBothArchiveAndFeed) {
    ASSERT_EQ(publish({}, {u"one"_s, u"two"_s}).status, 0);
    EXPECT_EQ(entries().first()[u"signature"_s].toArray().size(), 2);
    for (size_t number : {0, 1}) {
        makeApp(u"Old.app"_s, u"1042"_s, {keyText(key(number))});
        EXPECT_EQ(verifyFeed(feedUrl(), u"Old.app"_s).status, 0) << number;
    }
}

TEST_F(Publish, RepeatedNothingChanges) {
    publishEarlier();
    ASSERT_EQ(publish().status, 0);
    const QStringList before = treeOf(site());
    expectSaid(publish(), 0, "build 1043 is published already: nothing to do");
    EXPECT_EQ(treeOf(site()), before);
}

TEST_F(Publish, ArchiveOfAnInterruptedRunIsUsedAgain) {
    ASSERT_EQ(publish().status, 0);
    ASSERT_TRUE(QFile::remove(site(u"feed.json"_s)));
    struct stat before {};
    ASSERT_EQ(stat(site(u"My-1043.tgz"_s).toUtf8().constData(), &before), 0);
    ASSERT_EQ(publish().status, 0);
    struct stat after {};
    ASSERT_EQ(stat(site(u"My-1043.tgz"_s).toUtf8().constData(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    // One that is only as long is replaced.
    ASSERT_TRUE(QFile::remove(site(u"feed.json"_s)));
    const QByteArray good = readFile(site(u"My-1043.tgz"_s));
    writeFile(site(u"My-1043.tgz"_s), QByteArray(good.size(), 'x'));
    ASSERT_EQ(publish().status, 0);
    EXPECT_EQ(readFile(site(u"My-1043.tgz"_s)), good);
}

TEST_F(Publish, DifferenceIsShownBeforeAnythingIsUploaded) {
    publishEarlier();
    const QStringList before = treeOf(site());
    const ProcessResult result = publish({u"--dry-run"_s});
    expectSaid(result, 0, "+       \"build\": \"1043\"");
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("- build 1042 (2.2), My-1042.tgz"));
    EXPECT_THAT(result.output.toStdString(), testing::HasSubstr("upload My-1043.tgz, "));
    EXPECT_EQ(treeOf(site()), before);
    // The same words come before the upload, which fails here.
    overriding = [](const HttpRequest &request) -> std::optional<HttpReply> {
        return request.path().endsWith(".tgz") ? std::optional(HttpReply{.status = 500}) : std::nullopt;
    };
    const ProcessResult failed = publish();
    EXPECT_EQ(failed.status, 75);
    EXPECT_THAT(failed.output.toStdString(), testing::HasSubstr("+       \"build\": \"1043\""));
    EXPECT_EQ(builds(), QStringList{u"1042"_s});
}

TEST_F(Publish, ReportForMachinesSaysWhatWasDone) {
    publishEarlier();
    const ProcessResult result = publish({u"--json"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QJsonObject report = json(result);
    EXPECT_EQ(report.value(u"state"_s).toString(), u"published"_s);
    EXPECT_EQ(report.value(u"build"_s).toString(), u"1043"_s);
    EXPECT_EQ(report.value(u"identifier"_s).toString(), u"org.example.Host"_s);
    EXPECT_EQ(report.value(u"feed"_s).toString(), feedUrl());
    const QJsonObject archive = report.value(u"archives"_s)[0].toObject();
    EXPECT_EQ(archive.value(u"url"_s).toString(), server.url(u"/My-1043.tgz"_s));
    EXPECT_EQ(archive.value(u"size"_s).toInteger(), QFileInfo(site(u"My-1043.tgz"_s)).size());
    EXPECT_EQ(report.value(u"dropped"_s).toArray().size(), 1);
    makeNext(u"1"_s);
    const ProcessResult refused = publish({u"--json"_s});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(json(refused)[u"error"_s][u"description"_s].toString().toStdString(),
                testing::HasSubstr("is not greater"));
    EXPECT_FALSE(json(refused)[u"error"_s][u"uploaded"_s].toBool(true));
}

TEST_F(Publish, ConfigurationNeedsNoOptions) {
    makeNext();
    writeFile(path(u"txupdate.toml"_s),
              "# what publish needs every time\nbundle = \"next/My.app\"\nto = \"site\"\nurl = \"" +
                  server.url(u"/"_s).toUtf8() +
                  "\"\nkey = [\"one\", \"two\"]\narchive = \"zip\"\nexpires = \"never\"\nfeed = \"f.json\"\n"
                  "track = \"beta\"\nidentifier = \"org.example.Host\"\n");
    const ProcessResult result = command({u"publish"_s, u"--config"_s, path(u"txupdate.toml"_s)});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    const QJsonObject entry = QJsonDocument::fromJson(readFile(site(u"f.json"_s)))[u"beta"_s][0].toObject();
    EXPECT_EQ(entry.value(u"downloadURL"_s).toString(), server.url(u"/My-1043.zip"_s));
    EXPECT_EQ(entry.value(u"signature"_s).toArray().size(), 2);
    EXPECT_THAT(readFile(site(u"f.json"_s)).toStdString(), testing::HasSubstr("expires:never"));
    const std::pair<QByteArray, const char *> broken[] = {
        {"to = ", "txupdate.toml:1: "},
        {"feed = \"f.json\"\nfeeed = 1\n",
         "txupdate.toml:2: \"feeed\" is not known. These names are: archive"},
        {"expires = 401\n", "txupdate.toml:1: expires: expected a number of days from 1 to 400"},
        {"key = [1]\n", "txupdate.toml:1: key: expected a string or a list of strings"},
        {"track = true\n", "track: expected a string"},
        {"largest-archive = -1\n", "largest-archive: expected a number of bytes"}};
    for (const auto &[content, part] : broken) {
        writeFile(path(u"txupdate.toml"_s), content);
        expectRefused(command({u"publish"_s, u"--config"_s, path(u"txupdate.toml"_s)}), part);
    }
    expectRefused(command({u"publish"_s, u"--config"_s, path(u"none.toml"_s)}), "none.toml: No such file");
}

TEST(PublishConfiguration, ExampleOfTheDocumentsIsRead) {
    const QByteArray page = readFile(sourcesFolder() + u"/../docs/publishing.md"_s);
    const qsizetype begin = page.indexOf("```toml\n");
    ASSERT_GE(begin, 0);
    const qsizetype end = page.indexOf("\n```", begin + 1);
    const QTemporaryDir folder;
    writeFile(folder.filePath(u"txupdate.toml"_s), page.mid(begin + 8, end - begin - 8) + '\n');
    const auto read = tx::publishing::readConfiguration(folder.filePath(u"txupdate.toml"_s));
    ASSERT_TRUE(read) << read.fault().what;
    EXPECT_EQ(read->to, folder.filePath(u"site"_s));
    EXPECT_EQ(read->keys, QStringList{folder.filePath(u"release"_s)});
    EXPECT_EQ(read->expires, u"60"_s);
}

/// What would hurt is refused, and nothing is changed.
struct Refusal {
    const char *name;
    QStringList options;
    const char *reason;
    void (*prepare)(const QString &bundle) = nullptr;
};

class RefusedPublication : public Publish, public testing::WithParamInterface<int> {};

QList<Refusal> refusals() {
    return {
        {"BuildThatIsOlder",
         {},
         "build 1041 is not greater than build 1042",
         [](const QString &bundle) {
             const QString info = bundle + u"/Contents/Info.plist"_s;
             writeFile(info, readFile(info).replace("1043", "1041"));
         }},
        {"SameBuildWithOtherContent",
         {},
         "build 1042 is published already, with another archive",
         [](const QString &bundle) {
             const QString info = bundle + u"/Contents/Info.plist"_s;
             writeFile(info, readFile(info).replace("1043", "1042"));
             writeFile(bundle + u"/Contents/more"_s, "x");
         }},
        {"OtherIdentifier",
         {},
         "the feed is for org.example.Host, and this application is org.example.Other",
         [](const QString &bundle) {
             const QString info = bundle + u"/Contents/Info.plist"_s;
             writeFile(info, readFile(info).replace("org.example.Host", "org.example.Other"));
         }},
        {"IdentifierThatWasNotMeant",
         {u"--identifier"_s, u"org.example.X"_s},
         "the configuration is for org.example.X"},
        {"NoExecuteBit",
         {},
         "Program lacks its execute bit",
         [](const QString &bundle) {
             chmod((bundle + u"/Contents/Linux/Program"_s).toUtf8().constData(), 0644);
         }},
        {"NoExecutable",
         {},
         "Program, is not there",
         [](const QString &bundle) { QFile::remove(bundle + u"/Contents/Linux/Program"_s); }},
        {"OtherProgramWithoutExecuteBit",
         {},
         "helper lacks its execute bit",
         [](const QString &bundle) {
             writeFile(bundle + u"/Contents/Linux/helper"_s, readFile(u"/bin/true"_s));
             chmod((bundle + u"/Contents/Linux/helper"_s).toUtf8().constData(), 0644);
         }},
        {"AbsoluteLink",
         {},
         "is a link to /etc/passwd, which is absolute",
         [](const QString &bundle) { QFile::link(u"/etc/passwd"_s, bundle + u"/Contents/link"_s); }},
        {"LinkOutOfIt",
         {},
         "leads out of the application",
         [](const QString &bundle) { QFile::link(u"../../x"_s, bundle + u"/Contents/link"_s); }},
        {"Pipe",
         {},
         "is neither a file nor a folder nor a link",
         [](const QString &bundle) { mkfifo((bundle + u"/Contents/pipe"_s).toUtf8().constData(), 0600); }},
        {"LargeArchive", {u"--largest-archive"_s, u"100"_s}, "installed versions download at most 100 bytes"},
        {"LargeApplication",
         {u"--largest-unpacked"_s, u"100"_s},
         "installed versions unpack at most 100 bytes"},
        {"InsecureAddress", {u"--url"_s, u"http://example.org/"_s}, "is not an https URL"},
        {"InsecureNotes",
         {u"--notes"_s, u"http://example.org/n.html"_s},
         "the URL of the notes, \"http://example.org/n.html\", is not an https URL"},
        {"MissingNotes", {u"--notes"_s, u"/no/such.html"_s}, "the notes cannot be loaded: /no/such.html"},
        {"EmptyNotes", {u"--notes"_s, u"/dev/null"_s}, "the notes in /dev/null are empty"},
        {"NoKey", {u"--config"_s, u"/dev/null"_s}, "installs signed archives only: name the key with --key"},
        {"ForeignKey", {u"--key"_s, u"@foreign"_s}, "the keys of the application in it do not verify it"},
        {"NoSuchFolder", {u"--to"_s, u"/no/such"_s}, "/no/such is not a folder"},
        {"BadDate", {u"--date"_s, u"2026-02-30 10:00:00"_s}, "is not of the form yyyy-MM-dd HH:mm:ss"},
        {"NobodysBuild", {u"--min-build"_s, u"10"_s, u"--max-build"_s, u"9"_s}, "nobody would see the build"},
        {"NobodysSystem",
         {u"--min-system"_s, u"13"_s, u"--max-system"_s, u"12"_s},
         "nobody would see the build"},
        {"OtherFeedName",
         {u"--feed-name"_s, u"beta"_s},
         "the feed has the name \"release\" in its signature"},
        {"FeedNameWithFolder", {u"--feed"_s, u"a/b.json"_s}, "is not the name of a feed"},
        {"TzstForNobodyKnowsWhom",
         {u"--archive"_s, u"tgz"_s, u"--archive"_s, u"tzst"_s},
         "name it with --tzst-from"},
        {"TzstAlone", {u"--archive"_s, u"tzst"_s, u"--tzst-from"_s, u"9"_s}, "add --archive tgz for them"},
        {"NotesSizeThatIsNone", {u"--notes-size"_s, u"640x480"_s}, "\"640x480\" is not a size of the notes"},
        {"UnknownType", {u"--archive"_s, u"rar"_s}, "\"rar\" is not an archive's type"},
    };
}

TEST_P(RefusedPublication, NothingChanges) {
    const Refusal refusal = refusals()[GetParam()];
    publishEarlier();
    if (refusal.prepare)
        refusal.prepare(path(u"next/My.app"_s));
    const QStringList before = treeOf(site());
    QStringList words = refusal.options;
    QStringList keys{u"one"_s};
    if (words.contains(u"/dev/null"_s) && words.first() == u"--config")
        keys.clear();
    if (const qsizetype at = words.indexOf(u"@foreign"_s); at >= 0) {
        words[at] = path(u"foreign"_s);
        keys.clear();
    }
    QStringList command{u"publish"_s, path(u"next/My.app"_s)};
    for (const QString &word : place(keys)) {
        // An option of the case takes the place of the usual one.
        command << word;
    }
    for (const QString &option : {u"--url"_s, u"--to"_s}) {
        if (words.contains(option))
            command.remove(command.indexOf(option), 2);
    }
    expectRefused(this->command(command + words), refusal.reason);
    EXPECT_EQ(treeOf(site()), before);
}
INSTANTIATE_TEST_SUITE_P(What, RefusedPublication, testing::Range(0, int(refusals().size())),
                         [](const testing::TestParamInfo<int> &one) {
                             return std::string(refusals()[one.param].name);
                         });

TEST_F(Publish, WhatTheFeedOrTheNotesSayIsRefusedBeforeAnythingIsPacked) {
    publishEarlier();
    writeFile(path(u"empty.html"_s), " ");
    const std::tuple<QString, QByteArray, QStringList, const char *> cases[] = {
        {u"1041"_s, {}, {}, "build 1041 is not greater"},
        {u"1043"_s, "org.example.Other", {}, "the feed is for org.example.Host"},
        {u"1043"_s, {}, {u"--notes"_s, path(u"none.html"_s)}, "the notes cannot be loaded"},
        {u"1043"_s, {}, {u"--notes"_s, path(u"empty.html"_s)}, "are empty"}};
    for (const auto &[build, identifier, words, reason] : cases) {
        makeNext(build);
        const QString info = path(u"next/My.app/Contents/Info.plist"_s);
        if (!identifier.isEmpty())
            writeFile(info, readFile(info).replace("org.example.Host", identifier));
        // Packing would be refused for another reason.
        expectRefused(publish(QStringList{u"--largest-archive"_s, u"1"_s} + words), reason);
    }
}

TEST_F(Publish, ServerThatDoesNotAnswerIsNotAnotherArchive) {
    publishEarlier();
    makeNext(u"1042"_s);
    overriding = [](const HttpRequest &request) -> std::optional<HttpReply> {
        return request.path().endsWith(".tgz") ? std::optional(HttpReply{.status = 503}) : std::nullopt;
    };
    const ProcessResult result = publish();
    expectRefused(result, "the server does not give ");
    EXPECT_THAT(result.errors.toStdString(), testing::Not(testing::HasSubstr("another archive")));
}

TEST_F(Publish, NotesOfAPublishedBuildAreCorrectedOrTheirPublisherIsTold) {
    const QStringList notes{u"--notes"_s, path(u"n.html"_s)};
    writeFile(path(u"n.html"_s), "<p>teh</p>");
    ASSERT_EQ(publish(notes).status, 0);
    const QByteArray feed = readFile(site(u"feed.json"_s));
    expectSaid(publish(notes), 0, "build 1043 is published already: nothing to do");
    writeFile(path(u"n.html"_s), "<p>the</p>");
    expectSaid(publish(notes + QStringList{u"--dry-run"_s}), 0, "upload My-1043.html");
    EXPECT_EQ(readFile(site(u"My-1043.html"_s)), "<p>teh</p>");
    expectSaid(publish(notes), 0, "build 1043 is published already, with other notes");
    EXPECT_EQ(readFile(site(u"My-1043.html"_s)), "<p>the</p>");
    EXPECT_EQ(readFile(site(u"feed.json"_s)), feed);
    // The entry would have to name them.
    writeFile(path(u"n.txt"_s), "the");
    expectSaid(publish({u"--notes"_s, path(u"n.txt"_s)}), 0, "withdraw the build and publish it again");
    EXPECT_FALSE(QFileInfo::exists(site(u"My-1043.txt"_s)));
    EXPECT_EQ(readFile(site(u"feed.json"_s)), feed);
}

TEST_F(Publish, NotesThatTheServerDoesNotGiveAreRefused) {
    expectRefused(publish({u"--notes"_s, server.url(u"/none.html"_s)}),
                  "the notes cannot be loaded: the server does not give ");
    EXPECT_EQ(namesIn(site()), QStringList{u".txupdate-publish.lock"_s});
    // Uploaded, but not what the server shows.
    writeFile(path(u"n.html"_s), "<p>new</p>");
    overriding = [](const HttpRequest &request) -> std::optional<HttpReply> {
        return request.path().endsWith(".html") ? std::optional(HttpReply::file("<p>old</p>")) : std::nullopt;
    };
    expectSaid(publish({u"--notes"_s, path(u"n.html"_s)}), 75, "are not what was uploaded");
    EXPECT_FALSE(QFileInfo::exists(site(u"feed.json"_s)));
}

TEST_F(Publish, ArchiveThatTheServerChangesIsNeverNamedByTheFeed) {
    publishEarlier();
    const QByteArray before = readFile(site(u"feed.json"_s));
    for (const QByteArray &wrong : {QByteArray("short"), QByteArray(1 << 20, 'x')}) {
        overriding = [&wrong](const HttpRequest &request) -> std::optional<HttpReply> {
            return request.path().endsWith("1043.tgz") ? std::optional(HttpReply::file(wrong)) : std::nullopt;
        };
        expectSaid(publish(), 75, "some files were uploaded. Run the same command again");
        EXPECT_EQ(readFile(site(u"feed.json"_s)), before);
    }
    overriding = nullptr;
    EXPECT_EQ(publish().status, 0);
    EXPECT_EQ(builds(), QStringList{u"1043"_s});
}

TEST_F(Publish, FeedThatSomebodyElseChangesMeanwhileStays) {
    publishEarlier();
    // Another publisher's feed comes while this one's archive is checked.
    const QByteArray other = [this] {
        makeApp(u"other/My.app"_s, u"1042.1"_s, {keyText(key(0)), keyText(key(1))});
        QDir().mkpath(path(u"elsewhere"_s));
        EXPECT_TRUE(QFile::copy(site(u"feed.json"_s), path(u"elsewhere/feed.json"_s)));
        const ProcessResult result =
            command({u"publish"_s, path(u"other/My.app"_s), u"--to"_s, path(u"elsewhere"_s), u"--url"_s,
                     server.url(u"/"_s), u"--key"_s, path(u"one"_s), u"--not-served"_s, u"--max-build"_s,
                     u"1042.1"_s, u"--min-system"_s, u"99"_s});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        return readFile(path(u"elsewhere/feed.json"_s));
    }();
    overriding = [&](const HttpRequest &request) -> std::optional<HttpReply> {
        if (request.path().endsWith("1043.tgz"))
            writeFile(site(u"feed.json"_s), other);
        return std::nullopt;
    };
    expectSaid(publish(), 75, "somebody else has changed feed.json");
    EXPECT_EQ(readFile(site(u"feed.json"_s)), other);
    overriding = nullptr;
    ASSERT_EQ(publish({u"--max-system"_s, u"98"_s}).status, 0);
    EXPECT_EQ(builds(), (QStringList{u"1043"_s, u"1042.1"_s, u"1042"_s}));
}

TEST_F(Publish, OnlyOnePublisherAtATimeWritesToAFolder) {
    publishEarlier();
    ProcessResult second;
    overriding = [&](const HttpRequest &request) -> std::optional<HttpReply> {
        if (request.path().endsWith("1043.tgz") && second.status < 0)
            second = publish();
        return std::nullopt;
    };
    EXPECT_EQ(publish().status, 0);
    expectSaid(second, 1, "another txupdate is publishing to ");
}

TEST_F(Publish, WrongTypeAndOldCopiesOfTheFeedAreToldAbout) {
    overriding = [](const HttpRequest &request) -> std::optional<HttpReply> {
        return request.path().endsWith(".json") ? std::optional(HttpReply::file("{}", "text/plain"))
                                                : std::nullopt;
    };
    const ProcessResult result = publish();
    expectSaid(result, 0, "is served as \"text/plain\"");
    expectSaid(result, 0, "is not the new feed yet");
}

TEST_F(Publish, FolderThatIsNotServedIsReadBack) {
    const ProcessResult result = publish({u"--not-served"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_EQ(builds(), QStringList{u"1043"_s});
}

TEST_F(Publish, OlderEntriesStayForThoseWhoCannotUseTheNewOne) {
    publishEarlier({u"--max-system"_s, u"12.9"_s});
    makeNext(u"1043"_s);
    ASSERT_EQ(publish({u"--min-system"_s, u"13"_s}).status, 0);
    EXPECT_EQ(builds(), (QStringList{u"1043"_s, u"1042"_s}));
    makeNext(u"1044"_s);
    const ProcessResult result = publish({u"--min-system"_s, u"13"_s});
    expectSaid(result, 0, "build 1042 (2.2), My-1042.tgz: it is for systems for which the new one is not");
    EXPECT_EQ(builds(), (QStringList{u"1044"_s, u"1042"_s}));
    makeNext(u"1045"_s);
    ASSERT_EQ(publish().status, 0);
    EXPECT_EQ(builds(), QStringList{u"1045"_s});
}

TEST_F(Publish, EachApplicationGetsTheArchiveThatItCanUnpack) {
    publishEarlier();
    const ProcessResult result =
        publish({u"--archive"_s, u"tgz"_s, u"--archive"_s, u"tzst"_s, u"--tzst-from"_s, u"1040"_s});
    ASSERT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_EQ(builds(), (QStringList{u"1043"_s, u"1043"_s}));
    EXPECT_EQ(verifyFeed(feedUrl()).status, 0);
    const std::pair<QString, QString> offered[] = {
        {u"1039.9"_s, u"/My-1043.tgz"_s}, {u"1040"_s, u"/My-1043.tzst"_s}, {u"1042"_s, u"/My-1043.tzst"_s}};
    for (const auto &[build, name] : offered) {
        const ProcessResult shown = run(
            {u"feed"_s, u"show"_s, feedUrl(), u"--build"_s, build, u"--system"_s, u"12.0.0"_s, u"--json"_s});
        const QJsonArray updates = json(shown)[u"tracks"_s].toArray()[0][u"updates"_s].toArray();
        ASSERT_FALSE(updates.isEmpty());
        EXPECT_EQ(updates[0][u"fileURL"_s].toString(), server.url(name)) << build.toStdString();
    }
    const ProcessResult installed =
        command({u"feed"_s, u"validate"_s, feedUrl(), u"--archives"_s, u"--app"_s, path(u"My.app"_s)});
    EXPECT_THAT(installed.output.toStdString(),
                testing::HasSubstr("2 archives fetched, 0 cannot be installed"));
    expectSaid(publish({u"--archive"_s, u"tgz"_s, u"--archive"_s, u"tzst"_s, u"--tzst-from"_s, u"1040"_s}), 0,
               "is published already");
    makeNext(u"1044"_s);
    ASSERT_EQ(publish().status, 0);
    EXPECT_EQ(builds(), QStringList{u"1044"_s});
}

TEST_F(Publish, BuildForOtherSystemsNeedNotBeGreater) {
    makeNext(u"2000"_s);
    ASSERT_EQ(publish({u"--min-system"_s, u"13"_s}).status, 0);
    makeNext(u"1043"_s);
    expectRefused(publish(), "build 1043 is not greater than build 2000");
    ASSERT_EQ(publish({u"--max-system"_s, u"12.99"_s}).status, 0);
    EXPECT_EQ(builds(), (QStringList{u"1043"_s, u"2000"_s}));
}

TEST_F(Publish, FeedThatIsNotSignedTellsItsApplicationByItsArchive) {
    makeUnsigned(u"1042"_s);
    ASSERT_EQ(publish({}, {}).status, 0);
    EXPECT_EQ(entries().first().toObject().contains(u"signature"_s), false);
    makeUnsigned(u"1043"_s, "org.example.Other");
    expectRefused(publish({}, {}),
                  "build 1042 (1042), My-1042.tgz is for org.example.Host, and this application is "
                  "org.example.Other");
    // A target that nobody serves tells it itself.
    const qsizetype asked = server.requests().size();
    expectRefused(publish({u"--not-served"_s}, {}), "is for org.example.Host, and this application is ");
    makeUnsigned(u"1042"_s);
    expectSaid(publish({u"--not-served"_s}, {}), 0, "build 1042 is published already: nothing to do");
    EXPECT_EQ(server.requests().size(), asked);
    makeUnsigned(u"1043"_s);
    ASSERT_TRUE(QFile::rename(site(u"My-1042.tgz"_s), path(u"away.tgz"_s)));
    expectRefused(publish({}, {}), "it cannot be found out whether the feed is for this application");
    const ProcessResult named = publish({u"--identifier"_s, u"org.example.Host"_s}, {});
    EXPECT_EQ(named.status, 0) << named.errors.constData();
    EXPECT_EQ(builds(), QStringList{u"1043"_s});
}

TEST_F(Publish, SignedFeedIsNotReplacedByOneWithoutSignature) {
    publishEarlier();
    const QByteArray before = readFile(site(u"feed.json"_s));
    makeUnsigned(u"1043"_s);
    expectRefused(publish({}, {}), "the feed is signed, and without a key it would lose its signature");
    EXPECT_EQ(readFile(site(u"feed.json"_s)), before);
}

TEST_F(Publish, KeysWithoutAnyOfTheEarlierOnesAreWarnedAbout) {
    publishEarlier();
    const ProcessResult result = publish({}, {u"two"_s});
    expectSaid(result, 0, "none of the keys of earlier builds signs this one");
    EXPECT_EQ(builds(), (QStringList{u"1043"_s, u"1042"_s}));
}

TEST_F(Publish, FeedThatCannotBeReadStays) {
    for (const QByteArray &content :
         {QByteArray("<rss/>"), QByteArray("{\"release\":1}"), QByteArray("{\"a\":[],\"a\":[{}]}"),
          QByteArray("[1]"), QByteArray("{\"signature\":[{\"type\":\"signature\",\"value\":\"x\"}],\n}")}) {
        writeFile(site(u"feed.json"_s), content);
        const ProcessResult result = publish();
        EXPECT_EQ(result.status, 1) << content.constData();
        EXPECT_EQ(readFile(site(u"feed.json"_s)), content);
    }
}

} // namespace
