// SPDX-License-Identifier: MIT
#include "feed/jsonreader.h"
#include "model/itemdate.h"
#include "tests/support/environment.h"

#include <QRegularExpression>
#include <QStringEncoder>

using namespace Qt::StringLiterals;

namespace {

class JsonReader : public tx::test::FrameworkTest {
protected:
    const QDateTime now = QDateTime(QDate(2026, 6, 1), QTime(12, 0), Qt::UTC);
    QStringList skipped;

    tx::Result<TXUpdateFeed::TrackMap> read(const QByteArray &document) {
        skipped.clear();
        tx::ReaderContext context{u"1042"_s, u"12.0.0"_s, now, {}, false};
        context.skipped = [this](const tx::SkippedEntry &e) {
            skipped << u"%1[%2] %3"_s.arg(e.track).arg(e.index).arg(e.reason);
        };
        return tx::readJsonFeed(document, context);
    }
    /// The update that a single entry gives; null when it is dropped.
    TXUpdatePtr update(const QByteArray &members) {
        const auto tracks = read("{\"release\":[{\"type\":\"build\"," + members + "}]}");
        EXPECT_TRUE(bool(tracks)) << tracks.error().toString().toStdString();
        if (!tracks || tracks->value(u"release"_s)->updates().isEmpty())
            return nullptr;
        return tracks->value(u"release"_s)->updates().first();
    }
    TXUpdatePostPtr post(const QByteArray &members, const QByteArray &type = "post") {
        const auto tracks = read("{\"release\":[{\"type\":\"" + type + "\"," + members + "}]}");
        EXPECT_TRUE(bool(tracks)) << tracks.error().toString().toStdString();
        if (!tracks || tracks->value(u"release"_s)->posts().isEmpty())
            return nullptr;
        return tracks->value(u"release"_s)->posts().first();
    }
};

TEST_F(JsonReader, BuildFillsEveryProperty) {
    const TXUpdatePtr u = update(R"("title":"T","description":"<b>D</b>","date":"2026-05-01 10:00:00",
        "build":"1043","version":"2.1","releaseNotesURL":"https://e.org/n","downloadURL":"https://e.org/d.zip",
        "webpageURL":"https://e.org/w","autodownload":"no","preferredDisplaySize":"{640, 480}",
        "minSystemVersion":"11.0","maxSystemVersion":"13.0","minBuild":"1000","maxBuild":"2000","launch":"any")");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->title(), u"T"_s);
    EXPECT_EQ(u->itemDescription(), u"<b>D</b>"_s);
    EXPECT_EQ(u->dateString(), u"2026-05-01 10:00:00"_s);
    EXPECT_EQ(u->date().toUTC().toString(Qt::ISODate), u"2026-05-01T17:00:00Z"_s);
    EXPECT_EQ(u->version(), u"1043"_s);
    EXPECT_EQ(u->displayVersion(), u"2.1"_s);
    EXPECT_EQ(u->releaseNotesURL(), QUrl(u"https://e.org/n"_s));
    EXPECT_EQ(u->fileURL(), QUrl(u"https://e.org/d.zip"_s));
    EXPECT_EQ(u->linkURL(), QUrl(u"https://e.org/w"_s));
    EXPECT_TRUE(u->excludeFromAutoDownloading());
    EXPECT_EQ(u->preferredDisplaySize(), QSizeF(640, 480));
    ASSERT_TRUE(u->conditions());
    EXPECT_EQ(u->conditions()->minimumSystemVersion, u"11.0"_s);
    EXPECT_EQ(u->conditions()->maximumSystemVersion, u"13.0"_s);
    EXPECT_EQ(u->conditions()->minimumAppBuild, u"1000"_s);
    EXPECT_EQ(u->conditions()->maximumAppBuild, u"2000"_s);
    EXPECT_EQ(u->conditions()->launch, TXUpdateConditionLaunchAny);
    EXPECT_TRUE(u->extra().isNull());
}

TEST_F(JsonReader, BuildSaysTheSameOnceItIsUsed) {
    const QByteArray members = R"("title":"T","description":"<b>D</b>","date":"2026-05-01 10:00:00",
        "build":"1043","releaseNotesURL":"https://e.org/n","downloadURL":"https://e.org/d.zip",
        "webpageURL":"https://e.org/w","autodownload":"disabled","preferredDisplaySize":"{640, 480}",
        "minSystemVersion":"11.0","maxSystemVersion":"13.0","minBuild":"1000","maxBuild":"2000","launch":"first")";
    const TXUpdatePtr fresh = update(members);
    const TXUpdatePtr used = update(members);
    ASSERT_TRUE(fresh && used);
    used->setDownloadPath(u"/somewhere"_s);
    EXPECT_TRUE(used->isEqual(*fresh));
    for (const char *name : {"title", "version", "displayVersion", "dateString", "itemDescription", "extra",
                             "releaseNotesURL", "fileURL", "linkURL", "preferredDisplaySize",
                             "excludeFromAutoDownloading", "isDownloaded", "downloadProgress"})
        EXPECT_EQ(used->property(name), fresh->property(name)) << name;
    EXPECT_EQ(used->date(), fresh->date());
    used->setTitle(u"Another"_s);
    EXPECT_EQ(used->title(), u"Another");
    EXPECT_EQ(used->version(), u"1043");
    EXPECT_FALSE(used->isEqual(*fresh));
    EXPECT_EQ(fresh->title(), u"T");
}

TEST_F(JsonReader, PostSaysTheSameOnceItIsChangedAndSoDoesACopy) {
    const TXUpdatePostPtr original = post(
        R"("title":"T","date":"2026-05-01 10:00:00","endDate":"2026-07-01 10:00:00","display":"passive",
        "url":"https://e.org/p","preferredDisplaySize":"{640, 480}","minBuild":"1000","launch":"any")");
    ASSERT_TRUE(original);
    TXUpdatePost changed = *original;
    changed.setDisplayTime(TXUpdatePostDisplayTimeAtQuit);
    EXPECT_EQ(changed.displayTime(), TXUpdatePostDisplayTimeAtQuit);
    EXPECT_EQ(original->displayTime(), TXUpdatePostDisplayTimePassive);
    const TXUpdatePost copy = changed;
    changed.setTitle(u"Another"_s);
    EXPECT_EQ(copy.title(), original->title());
    EXPECT_EQ(copy.postURL(), original->postURL());
    EXPECT_EQ(copy.dateString(), original->dateString());
    EXPECT_EQ(copy.endDateString(), original->endDateString());
    EXPECT_EQ(copy.preferredDisplaySize(), QSizeF(640, 480));
    EXPECT_EQ(copy.conditions(), original->conditions());
    EXPECT_EQ(copy.identifier(), original->identifier());
}

TEST_F(JsonReader, HundredThousandNewerEntriesAreRead) {
    constexpr int count = 100000;
    QByteArray entries;
    for (int i = 0; i < count; ++i)
        entries += R"({"type":"build","build":")" + QByteArray::number(2000 + i) +
                   R"(","webpageURL":"https://e.org/w"},)";
    entries.chop(1);
    const auto tracks = read("{\"release\":[" + entries + "]}");
    ASSERT_TRUE(bool(tracks)) << tracks.error().toString().toStdString();
    const QList<TXUpdatePtr> updates = tracks->value(u"release"_s)->updates();
    ASSERT_EQ(updates.size(), count);
    EXPECT_EQ(updates.last()->version(), QString::number(2000 + count - 1));
}

TEST_F(JsonReader, AddressLongerThanAnyServerTakesIsNone) {
    const QByteArray address = "https://e.org/" + QByteArray(65536 - 14, 'x');
    const TXUpdatePtr u = update(R"("build":"1043","downloadURL":")" + address + '"');
    ASSERT_TRUE(u);
    EXPECT_EQ(u->fileURL().toEncoded(), address);
    EXPECT_FALSE(update(R"("build":"1043","downloadURL":")" + address + "x\""));
    EXPECT_TRUE(post(R"("url":")" + address + '"'));
    EXPECT_FALSE(post(R"("url":")" + address + "x\""));
}

TEST_F(JsonReader, LogShowsTheBeginningsOfLongTexts) {
    ASSERT_TRUE(update(R"("build":"1043","webpageURL":"a:b","description":")" + QByteArray(100000, 'x') +
                       R"(","date":")" + QByteArray(100000, 'y') + '"'));
    const QStringList lines = logLines();
    const qsizetype entry = lines.indexOf(QRegularExpression(u"^Update has no date:.*"_s));
    ASSERT_GE(entry, 0);
    EXPECT_TRUE(lines[entry].contains(u"xxx... (100000 bytes)"_s));
    for (const QString &line : lines)
        EXPECT_LT(line.size(), 5000);
}

TEST_F(JsonReader, MissingMembersStayAbsentAndConditionsAreAlwaysSet) {
    const TXUpdatePtr u = update(R"("build":"1043","webpageURL":"https://e.org/w")");
    ASSERT_TRUE(u);
    EXPECT_TRUE(u->title().isNull());
    EXPECT_TRUE(u->itemDescription().isNull());
    EXPECT_TRUE(u->dateString().isNull());
    EXPECT_EQ(u->displayVersion(), u"1043"_s) << "falls back to the build";
    EXPECT_FALSE(u->canBeDownloaded());
    EXPECT_TRUE(u->releaseNotesURL().isEmpty());
    EXPECT_FALSE(u->excludeFromAutoDownloading());
    EXPECT_EQ(u->preferredDisplaySize(), QSizeF(0, 0));
    ASSERT_TRUE(u->conditions());
    EXPECT_EQ(u->conditions()->launch, TXUpdateConditionLaunchNotFirst);
}

TEST_F(JsonReader, AutodownloadIsSwitchedOffByFourTextsOnly) {
    const QList<std::pair<QByteArray, bool>> cases{
        {"\"false\"", true}, {"\"no\"", true}, {"\"disable\"", true}, {"\"disabled\"", true},
        {"false", false},    {"true", false},  {"\"False\"", false},  {"\"\"", false},
        {"0", false},        {"null", false}};
    for (const auto &[value, excluded] : cases) {
        const TXUpdatePtr u =
            update(R"("build":"1043","downloadURL":"https://e.org/d.zip","autodownload":)" + value);
        ASSERT_TRUE(u);
        EXPECT_EQ(u->excludeFromAutoDownloading(), excluded) << value.constData();
    }
}

TEST_F(JsonReader, PostFillsEveryProperty) {
    for (const QByteArray type : {"post", "post.v2"}) {
        const TXUpdatePostPtr p =
            post(R"("title":"T","date":"2026-05-01 10:00:00","endDate":"2026-07-01 10:00:00",
            "display":"atQuit","postURL":"https://e.org/p","preferredDisplaySize":"{300, 200}","launch":"first",
            "maxBuild":"2000")",
                 type);
        ASSERT_TRUE(p);
        EXPECT_EQ(p->title(), u"T"_s);
        EXPECT_EQ(p->dateString(), u"2026-05-01 10:00:00"_s);
        EXPECT_EQ(p->endDateString(), u"2026-07-01 10:00:00"_s);
        EXPECT_EQ(p->displayTime(), TXUpdatePostDisplayTimeAtQuit);
        EXPECT_EQ(p->postURL(), QUrl(u"https://e.org/p"_s));
        EXPECT_EQ(p->preferredDisplaySize(), QSizeF(300, 200));
        EXPECT_EQ(p->conditions()->launch, TXUpdateConditionLaunchFirst);
        EXPECT_EQ(p->conditions()->maximumAppBuild, u"2000"_s);
    }
}

TEST_F(JsonReader, UrlWinsOverPostURL) {
    EXPECT_EQ(post(R"("postURL":"https://e.org/1","url":"https://e.org/2")")->postURL(),
              QUrl(u"https://e.org/2"_s));
    EXPECT_EQ(post(R"("url":"https://e.org/2","postURL":"https://e.org/1")")->postURL(),
              QUrl(u"https://e.org/2"_s));
    EXPECT_EQ(post(R"("postURL":"https://e.org/1","url":"http://[")")->postURL(), QUrl(u"https://e.org/1"_s))
        << "a text that is no address counts as none";
}

TEST_F(JsonReader, PostEndsWhenItsEndDateHasPassed) {
    const auto ending = [](const QDateTime &end) {
        return "\"url\":\"https://e.org/\",\"endDate\":\"" + tx::itemDateToString(end).toUtf8() + '"';
    };
    EXPECT_TRUE(post(ending(now.addSecs(1))));
    EXPECT_TRUE(post(ending(now)));
    EXPECT_FALSE(post(ending(now.addSecs(-1))));
    EXPECT_THAT(skipped.join(u'|').toStdString(), testing::HasSubstr("has passed"));
    EXPECT_TRUE(post(R"("url":"https://e.org/","endDate":"tomorrow")")) << "an unreadable end date is none";
}

TEST_F(JsonReader, DroppedEntriesHaveTheirReasons) {
    const auto tracks = read(R"({"release":[
        {"type":"build","downloadURL":"https://e.org/d.zip"},
        {"type":"build","build":"1043"},
        {"type":"build","build":"1043","downloadURL":"http://["},
        {"type":"post"},
        {"type":"banner"},
        {},
        {"type":7},
        {"type":"build","build":"1042","downloadURL":"https://e.org/d.zip"},
        {"type":"build","build":"2000","downloadURL":"https://e.org/d.zip","maxBuild":"1000"},
        {"type":"post","url":"https://e.org/","minSystemVersion":"99"},
        {"type":"build","build":"1043","downloadURL":"https://e.org/d.zip"}]})");
    ASSERT_TRUE(bool(tracks));
    EXPECT_EQ(tracks->value(u"release"_s)->updates().size(), 1);
    EXPECT_EQ(tracks->value(u"release"_s)->posts().size(), 0);
    EXPECT_EQ(skipped, (QStringList{u"release[0] Update lacks 'build' attribute"_s,
                                    u"release[1] Update lacks download URL or a link."_s,
                                    u"release[2] Update lacks download URL or a link."_s,
                                    u"release[3] Post lacks URL."_s, u"release[4] unknown type \"banner\""_s,
                                    u"release[5] no type"_s, u"release[6] unknown type \"7\""_s,
                                    u"release[7] build 1042 is not newer than build 1042"_s,
                                    u"release[8] maxBuild 1000 is older than build 1042"_s,
                                    u"release[9] minSystemVersion 99 is newer than system 12.0.0"_s}));
}

TEST_F(JsonReader, TracksKeepTheirNamesAndOrder) {
    const auto tracks = read(R"({"release":[],"beta":[
        {"type":"build","build":"1045","downloadURL":"https://e.org/5.zip"},
        {"type":"post","url":"https://e.org/p"},
        {"type":"build","build":"1044","downloadURL":"https://e.org/4.zip"}]})");
    ASSERT_TRUE(bool(tracks));
    EXPECT_EQ(tracks->keys(), (QStringList{u"beta"_s, u"release"_s}));
    const TXUpdateTrackPtr beta = tracks->value(u"beta"_s);
    ASSERT_EQ(beta->updates().size(), 2);
    EXPECT_EQ(beta->updates()[0]->version(), u"1045"_s);
    EXPECT_EQ(beta->updates()[1]->version(), u"1044"_s);
    EXPECT_EQ(beta->name(), u"beta"_s);
    EXPECT_TRUE(tracks->value(u"release"_s)->updates().isEmpty());
}

TEST_F(JsonReader, EmptyObjectHasNoTracks) {
    const auto tracks = read("{}");
    ASSERT_TRUE(bool(tracks));
    EXPECT_TRUE(tracks->isEmpty());
}

TEST_F(JsonReader, ValuesOfOtherTypesStandInTheirTextForm) {
    const TXUpdatePtr u =
        update(R"("build":1043,"downloadURL":"https://e.org/d.zip","title":true,"version":2.5,
        "description":[1,{"a":null}],"date":20260501,"launch":1,"maxBuild":1e3,"preferredDisplaySize":false)");
    EXPECT_FALSE(u) << "maxBuild 1000 is below this build";
    const TXUpdatePtr v =
        update(R"("build":1043,"downloadURL":"https://e.org/d.zip","title":true,"version":2.5,
        "description":[1,{"a":null}],"date":20260501,"launch":1,"maxBuild":18446744073709551615)");
    ASSERT_TRUE(v);
    EXPECT_EQ(v->version(), u"1043"_s);
    EXPECT_EQ(v->title(), u"1"_s);
    EXPECT_EQ(v->displayVersion(), u"2.5"_s);
    EXPECT_EQ(v->itemDescription(), u"[1,{\"a\":null}]"_s);
    EXPECT_EQ(v->dateString(), u"20260501"_s);
    EXPECT_EQ(v->conditions()->launch, TXUpdateConditionLaunchNotFirst);
    EXPECT_EQ(v->conditions()->maximumAppBuild, u"18446744073709551615"_s);
    const TXUpdatePtr w =
        update(R"("build":"1043","downloadURL":"https://e.org/d.zip","title":false,"version":null)");
    ASSERT_TRUE(w);
    EXPECT_EQ(w->title(), u"0"_s);
    EXPECT_EQ(w->displayVersion(), u"1043"_s) << "null is no text";
    EXPECT_FALSE(update(R"("build":null,"downloadURL":"https://e.org/d.zip")"));
    const TXUpdatePtr x = update(R"("build":-3.5e30,"downloadURL":7,"webpageURL":"https://e.org/")");
    EXPECT_FALSE(x);
}

TEST_F(JsonReader, NumbersOfAnySizeAreReadAndStandAsTheyAreWritten) {
    for (const QByteArray number :
         {"123456789012345678901234567890", "-99999999999999999999", "1e999", "-1E+999", "1e-999", "1.50",
          "0", "-0", "-0.0", "1E5", "1e+20", "2.10", "9007199254740993", "18446744073709551616"}) {
        const auto tracks = read("{\"release\":[{\"type\":\"build\",\"unknown\":" + number +
                                 ",\"more\":[{\"n\":" + number + "}, " + number + " ],\"title\":" + number +
                                 " ,\"description\":{\"a\":[" + number + ",\"x\"]},\"build\":\"1043\"," +
                                 "\"downloadURL\":\"https://e.org/d.zip\",\"version\":\n" + number + "\n}]}");
        ASSERT_TRUE(bool(tracks)) << number.constData() << ": " << tracks.error().toString().toStdString();
        ASSERT_EQ(tracks->value(u"release"_s)->updates().size(), 1) << number.constData();
        const TXUpdatePtr u = tracks->value(u"release"_s)->updates().first();
        EXPECT_EQ(u->title(), QString::fromLatin1(number));
        EXPECT_EQ(u->displayVersion(), QString::fromLatin1(number));
        EXPECT_EQ(u->itemDescription(), u"{\"a\":["_s + QString::fromLatin1(number) + u",\"x\"]}"_s);
        EXPECT_EQ(u->version(), u"1043"_s) << "what follows is read as well";
    }
}

TEST_F(JsonReader, WhatIsNoNumberInJsonFailsTheFeed) {
    for (const QByteArray number : {"01", "-", "-01", "1.", ".5", "+1", "1e", "1e+", "1.e5", "0x10", "1_000",
                                    "1,0", "12a", "1 2", "NaN", "Infinity", "--1", "1.2.3", "\xD9\xA1"}) {
        for (const QByteArray member : {"title", "unknown"})
            EXPECT_FALSE(bool(read("{\"release\":[{\"type\":\"build\",\"" + member + "\":" + number + "}]}")))
                << member.constData() << ": " << number.constData();
        EXPECT_FALSE(bool(read("{\"release\":[{\"type\":\"build\",\"x\":[" + number + "}]}")));
    }
}

TEST_F(JsonReader, EmptyTextIsNotAbsent) {
    const TXUpdatePtr u =
        update(R"("build":"1043","downloadURL":"https://e.org/d.zip","version":"","title":"")");
    ASSERT_TRUE(u);
    EXPECT_FALSE(u->displayVersion().isNull());
    EXPECT_TRUE(u->displayVersion().isEmpty());
    EXPECT_FALSE(u->title().isNull());
}

TEST_F(JsonReader, LastOfDuplicateMembersCounts) {
    const TXUpdatePtr u = update(
        R"("build":"1000","build":"1043","downloadURL":"https://e.org/1","downloadURL":"https://e.org/2")");
    ASSERT_TRUE(u);
    EXPECT_EQ(u->version(), u"1043"_s);
    EXPECT_EQ(u->fileURL(), QUrl(u"https://e.org/2"_s));
    const auto tracks = read(R"({"release":5,"release":[]})");
    ASSERT_TRUE(bool(tracks));
    EXPECT_TRUE(tracks->contains(u"release"_s));
    EXPECT_FALSE(bool(read(R"({"release":[],"release":5})")));
}

TEST_F(JsonReader, EncodingsWithAByteOrderMark) {
    const QString text =
        u"{\"release\":[{\"type\":\"build\",\"build\":\"1043\",\"title\":\"\u00FC\U0001F600\","
        "\"downloadURL\":\"https://e.org/d.zip\"}]}"_s;
    using E = QStringConverter;
    for (const E::Encoding encoding : {E::Utf8, E::Utf16LE, E::Utf16BE, E::Utf32LE, E::Utf32BE}) {
        QStringEncoder encoder(encoding, E::Flag::WriteBom);
        const auto tracks = read(encoder.encode(text));
        ASSERT_TRUE(bool(tracks)) << E::nameForEncoding(encoding);
        EXPECT_EQ(tracks->value(u"release"_s)->updates().first()->title(), u"\u00FC\U0001F600"_s);
    }
}

TEST_F(JsonReader, DocumentMayBeNestedTwoHundredDeep) {
    EXPECT_TRUE(bool(read("{\"release\":[{\"x\":" + QByteArray(200, '[') + QByteArray(200, ']') + "}]}")));
}

/// UTF-16 with its byte order mark, whatever the text holds.
QByteArray utf16(std::u16string_view text) {
    const std::u16string marked = u"\uFEFF" + std::u16string(text);
    return {reinterpret_cast<const char *>(marked.data()), static_cast<qsizetype>(marked.size() * 2)};
}

class JsonReaderFailure : public JsonReader, public testing::WithParamInterface<QByteArray> {};

TEST_P(JsonReaderFailure, WholeFeedIsRefusedWithAReason) {
    const auto tracks = read(GetParam());
    ASSERT_FALSE(bool(tracks));
    EXPECT_FALSE(tracks.error().localizedFailureReason().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Documents, JsonReaderFailure,
    testing::Values(QByteArray(""), QByteArray("nonsense"), QByteArray("[]"), QByteArray("7"),
                    QByteArray("\"x\""), QByteArray("null"), QByteArray("{\"release\":{}}"),
                    QByteArray("{\"release\":null}"), QByteArray("{\"release\":\"x\"}"),
                    QByteArray("{\"release\":[7]}"), QByteArray("{\"release\":[[]]}"),
                    QByteArray("{\"a\":[],\"release\":[{},null]}"), QByteArray("{\"release\":[}"),
                    QByteArray("{\"release\":[]"), QByteArray("{\"release\":[]} x"),
                    QByteArray("{\"release\":[{\"title\":\"\xff\xfe\"}]}"),
                    QByteArray("{\"release\":[{\"title\":\"\\ud800\"}]}"),
                    QByteArray("{\"release\":[{\"title\":\"\\udc00x\"}]}"),
                    QByteArray("{\"release\":[{\"title\":\"a\nb\"}]}"),
                    utf16(u"{\"release\":[{\"title\":\"\xd800\"}]}"), // half of a character
                    QByteArray("{\"release\":[{\"x\":" + QByteArray(300, '[') + QByteArray(300, ']') + "}]}"),
                    QByteArray("{\"a\":" + QByteArray(5000, '[')),
                    QByteArray("{\"a\":" + QByteArray(5000, '[') + QByteArray(5000, ']') + "}"),
                    QByteArray("\xfe\xff\xd8\x00", 4)));

TEST_F(JsonReader, UpdateWithoutDateIsKeptAndLogged) {
    ASSERT_TRUE(update(R"("build":"1043","downloadURL":"https://e.org/d.zip","date":"Tue, 10 Jun 2003")"));
    EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr("Update has no date: {"));
    EXPECT_THAT(
        logLines().join(u'\n').toStdString(),
        testing::HasSubstr("Update date getObjectValue error:Tue, 10 Jun 2003 -- yyyy-MM-dd HH:mm:ss -- "
                           "America/Los_Angeles"));
}

TEST_F(JsonReader, ReaderWithoutObserverGivesTheSame) {
    const QByteArray document = R"({"release":[{"type":"build","build":"1","downloadURL":"https://e.org/"},
        {"type":"build","build":"1043","downloadURL":"https://e.org/"},{"type":"build"},{"type":"post"}]})";
    const auto quiet = tx::readJsonFeed(document, {u"1042"_s, u"12.0.0"_s, now, {}, false});
    ASSERT_TRUE(bool(quiet));
    ASSERT_EQ(quiet->value(u"release"_s)->updates().size(), 1);
    EXPECT_EQ(quiet->value(u"release"_s)->updates().first()->version(), u"1043"_s);
}

TEST_F(JsonReader, ReasonsGoToThePlaceThatIsGiven) {
    tx::FeedEntry entry;
    QString reason;
    EXPECT_FALSE(tx::json_updateFromDictionary(entry, &reason));
    EXPECT_EQ(reason, u"Update lacks 'build' attribute"_s);
    EXPECT_FALSE(tx::json_updateFromDictionary(entry, nullptr));
    entry.set(tx::FeedEntry::Member::Build, "1");
    EXPECT_FALSE(tx::json_updateFromDictionary(entry, &reason));
    EXPECT_EQ(reason, u"Update lacks download URL or a link."_s);
    EXPECT_FALSE(tx::json_postFromDictionary(entry, &reason));
    EXPECT_EQ(reason, u"Post lacks URL."_s);
}

} // namespace
