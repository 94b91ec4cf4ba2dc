// SPDX-License-Identifier: MIT
// Edits of a feed's text, and which earlier entries a new one replaces.
#include "publish/entries.h"
#include "publish/feeddocument.h"
#include "tests/trust/trusttest.h"
#include "trust/archives.h"
#include "trust/feedsigning.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace tx::publishing;
using namespace tx::test;
using tx::JsonEntry;
using tx::JsonMember;

namespace {

QByteArray edited(const QByteArray &feed, const QString &track, const QList<QByteArray> &added,
                  const QList<qsizetype> &dropped) {
    const auto document = FeedDocument::parse(feed);
    EXPECT_TRUE(document) << document.fault().what;
    const auto result = document->edited(track, added, dropped);
    EXPECT_TRUE(result) << result.fault().what;
    return result ? *result : QByteArray();
}

struct Edit {
    const char *name;
    QByteArray before;
    QList<QByteArray> added;
    QList<qsizetype> dropped;
    QByteArray after;
};
// For GoogleTest's messages.
void PrintTo(const Edit &edit, std::ostream *out) { *out << edit.name; }

class FeedEdit : public testing::TestWithParam<Edit> {};

TEST_P(FeedEdit, KeepsAllThatIsNotMeant) {
    const Edit &edit = GetParam();
    EXPECT_EQ(edited(edit.before, u"release"_s, edit.added, edit.dropped), edit.after);
}

const QByteArray pretty =
    "{\n  \"zeta\": [],\n  \"release\": [\n    {\"x\": [1, {\"y\": \"]}\"}], \"build\":\"3\"},\n"
    "    { \"build\" : \"2\" },\n    {\"build\":\"1\"}\n  ],\n  \"a\": [{\"b\":null}]\n}\n";

INSTANTIATE_TEST_SUITE_P(
    Of, FeedEdit,
    testing::Values(
        Edit{"NewFeed", "", {R"({"n":1})"}, {}, "{\n  \"release\": [\n    {\"n\":1}\n  ]\n}\n"},
        Edit{"EmptyObject", " {} ", {R"({"n":1})"}, {}, " {\n  \"release\": [\n    {\"n\":1}\n  ]} "},
        Edit{"EmptyTrack", R"({"release":[]})", {R"({"n":1})"}, {}, "{\"release\":[\n    {\"n\":1}\n  ]}"},
        Edit{"NewTrack",
             R"({"b":[{}]})",
             {R"({"n":1})"},
             {},
             "{\"b\":[{}],\n  \"release\": [\n    {\"n\":1}\n  ]}"},
        Edit{"Compact",
             R"({"release":[{"a":1},{"a":2}]})",
             {R"({"n":1})"},
             {},
             R"({"release":[{"n":1},{"a":1},{"a":2}]})"},
        Edit{"Two",
             R"({"release":[{"a":1}]})",
             {R"({"n":1})", R"({"n":2})"},
             {},
             R"({"release":[{"n":1},{"n":2},{"a":1}]})"},
        Edit{"DroppedFirst", R"({"release":[{"a":1}, {"a":2}]})", {}, {0}, R"({"release":[{"a":2}]})"},
        Edit{"DroppedLast", R"({"release":[{"a":1}, {"a":2}]})", {}, {1}, R"({"release":[{"a":1}]})"},
        Edit{"DroppedAll", R"({"release":[ {"a":1}, {"a":2} ]})", {}, {0, 1}, R"({"release":[]})"},
        Edit{"Replaced",
             R"({"release":[ {"a":1}, {"a":2} ]})",
             {R"({"n":1})"},
             {0, 1},
             R"({"release":[ {"n":1} ]})"},
        Edit{"Pretty",
             pretty,
             {R"({"n":1})"},
             {1},
             "{\n  \"zeta\": [],\n  \"release\": [\n    {\"n\":1},\n    {\"x\": [1, {\"y\": \"]}\"}], "
             "\"build\":\"3\"},\n"
             "    {\"build\":\"1\"}\n  ],\n  \"a\": [{\"b\":null}]\n}\n"},
        Edit{"OtherTrack",
             R"({"b":[{"a":1}],"release":[{"a":2}]})",
             {R"({"n":1})"},
             {0},
             R"({"b":[],"release":[{"n":1},{"a":2}]})"},
        Edit{"Nothing", pretty, {}, {}, pretty}),
    [](const auto &one) { return std::string(one.param.name); });

TEST(FeedDocument, SignatureOfAnEditedFeedIsStillItsFirstLine) {
    const auto signedFeed = tx::trust::signFeed(R"({"release":[{"a":1}]})", tx::trust::FeedFormat::Json,
                                                {&key(0)}, {"org.example.Host", "release", 1700000000, 60});
    ASSERT_TRUE(signedFeed) << signedFeed.fault().what;
    const QByteArray bytes = QByteArray::fromStdString(signedFeed->document);
    const auto document = FeedDocument::parse(bytes);
    ASSERT_TRUE(document) << document.fault().what;
    ASSERT_TRUE(document->claim());
    EXPECT_EQ(document->claim()->bundle, "org.example.Host");
    EXPECT_EQ(document->entries().size(), 1);
    const auto after = document->edited(u"release"_s, {R"({"n":1})"}, {0});
    ASSERT_TRUE(after) << after.fault().what;
    const qsizetype line = bytes.indexOf('\n') + 1;
    EXPECT_EQ(*after, bytes.left(line) + R"("release":[{"n":1}]})");
    // The next signature thus knows the serial that it must exceed.
    const auto again = tx::trust::signFeed(after->toStdString(), tx::trust::FeedFormat::Json, {&key(0)},
                                           {"org.example.Host", "release", 1699999000, 60});
    ASSERT_TRUE(again) << again.fault().what;
    EXPECT_EQ(again->claim.serial, 1700000001U);
}

TEST(FeedDocument, WhatCannotBeEditedIsRefused) {
    const std::pair<QByteArray, const char *> cases[] = {
        {"<rss/>", "the feed cannot be read"},
        {"[]", "the feed cannot be read"},
        {R"({"a":1})", "the feed cannot be read"},
        {R"({"a":[1]})", "the feed cannot be read"},
        {R"({"a":[{}]} x)", "the feed cannot be read"},
        {R"({"a":[],"a":[{}]})", "twice"},
        {"{\"signature\":[{\"type\":\"signature\",\"value\":\"x\"}],\n}", "signature"}};
    for (const auto &[bytes, part] : cases) {
        const auto document = FeedDocument::parse(bytes);
        ASSERT_FALSE(document) << bytes.constData();
        EXPECT_THAT(document.fault().what, testing::HasSubstr(part)) << bytes.constData();
    }
    const auto document = FeedDocument::parse(R"({"release":[]})");
    EXPECT_FALSE(document->edited(u"release"_s, {"{"}, {}));
    EXPECT_FALSE(document->edited(u"release"_s, {"{},{}"}, {}));
}

TEST(FeedDocument, TextsAreEscapedAsJson) {
    for (const QString &text : {u"plain"_s, u"\"\\ \n\t é 日 \U0001F600"_s, QString(QChar(1)), u""_s}) {
        const QByteArray entry = entryText({{u"a \"b\""_s, jsonString(text)}});
        EXPECT_EQ(QJsonDocument::fromJson(entry).object().value(u"a \"b\""_s).toString(), text);
    }
}

JsonEntry entry(const std::vector<std::pair<QString, QString>> &members) {
    JsonEntry result{{u"type"_s, {u"build"_s, true}}};
    for (const auto &[name, value] : members)
        result.insert(name, {value, true});
    return result;
}

struct Replacement {
    const char *name;
    std::vector<std::pair<QString, QString>> earlier;
    Bounds bounds;
    bool isNeeded;
};
void PrintTo(const Replacement &replacement, std::ostream *out) { *out << replacement.name; }

class EarlierEntry : public testing::TestWithParam<Replacement> {};

/// The new build is 20.
TEST_P(EarlierEntry, StaysForThoseWhoCannotUseTheNewOne) {
    const Replacement &one = GetParam();
    EXPECT_EQ(!whyStillNeeded(entry(one.earlier), u"20"_s, one.bounds, {}).isNull(), one.isNeeded)
        << whyStillNeeded(entry(one.earlier), u"20"_s, one.bounds, {}).toStdString();
}

const std::pair<QString, QString> ten{u"build"_s, u"10"_s};
INSTANTIATE_TEST_SUITE_P(
    With, EarlierEntry,
    testing::Values(
        Replacement{"NoBounds", {ten}, {}, false},
        Replacement{"SameBuild", {{u"build"_s, u"20"_s}}, {}, true},
        Replacement{"NewerBuild", {{u"build"_s, u"21"_s}}, {}, true},
        Replacement{"NewOneFromASystemOn", {ten}, {{}, {}, u"13"_s, {}}, true},
        Replacement{"NewOneUpToASystem", {ten}, {{}, {}, {}, u"13"_s}, true},
        Replacement{"SameSystems",
                    {ten, {u"minSystemVersion"_s, u"12"_s}, {u"maxSystemVersion"_s, u"13"_s}},
                    {{}, {}, u"12"_s, u"13"_s},
                    false},
        Replacement{"WiderSystems",
                    {ten, {u"minSystemVersion"_s, u"12"_s}, {u"maxSystemVersion"_s, u"13"_s}},
                    {{}, {}, u"11"_s, u"14"_s},
                    false},
        Replacement{"LaterSystems", {ten, {u"minSystemVersion"_s, u"12"_s}}, {{}, {}, u"12.1"_s, {}}, true},
        Replacement{
            "EarlierLastSystem", {ten, {u"maxSystemVersion"_s, u"13"_s}}, {{}, {}, {}, u"12.9"_s}, true},
        Replacement{"NewOneFromABuildOn", {ten}, {u"5"_s, {}, {}, {}}, true},
        Replacement{"SameFirstBuild", {ten, {u"minBuild"_s, u"5"_s}}, {u"5"_s, {}, {}, {}}, false},
        // No application with build 10 or newer sees the earlier entry.
        Replacement{"NewOneUpToALaterBuild", {ten}, {{}, u"15"_s, {}, {}}, false},
        Replacement{"NewOneUpToAnEarlierBuild", {ten}, {{}, u"9"_s, {}, {}}, true},
        Replacement{"BothUpToABuild", {ten, {u"maxBuild"_s, u"7"_s}}, {{}, u"7"_s, {}, {}}, false},
        Replacement{"Bridge", {ten, {u"maxBuild"_s, u"9"_s}}, {u"10"_s, {}, {}, {}}, true}),
    [](const auto &one) { return std::string(one.param.name); });

TEST(EarlierEntrySignature, KeyThatTheNewOneLacksKeepsTheEntry) {
    const auto number = [](size_t which) {
        return QString::fromStdString(tx::trust::keyNumberText(key(which).publicKey().number));
    };
    const std::string comment = tx::trust::archiveComment({"org.example.Host", "10", 5, {}});
    const QString one = QString::fromStdString(signText(key(0), "bytes", comment));
    const QString two = QString::fromStdString(signText(key(1), "bytes", comment));
    JsonEntry both = entry({ten});
    both.insert(u"signature"_s,
                {QString::fromUtf8("[" + jsonString(one) + "," + jsonString(two) + "]"), false});
    JsonEntry first = entry({ten});
    first.insert(u"signature"_s, {one, true});
    EXPECT_EQ(signatureOf(both).signers, (QStringList{number(0), number(1)}));
    EXPECT_EQ(signatureOf(first).identifier, u"org.example.Host"_s);
    EXPECT_TRUE(whyStillNeeded(first, u"20"_s, {}, {number(0)}).isNull());
    EXPECT_TRUE(whyStillNeeded(both, u"20"_s, {}, {number(0), number(1)}).isNull());
    EXPECT_THAT(whyStillNeeded(both, u"20"_s, {}, {number(1)}).toStdString(),
                testing::HasSubstr("is signed by the key " + number(0).toStdString()));
}

TEST(EntryBounds, OverlapWhenAnApplicationCouldSeeBoth) {
    const Bounds all;
    const Bounds old{{}, {}, {}, u"12"_s};
    const Bounds young{{}, {}, u"12.1"_s, {}};
    const Bounds from12{{}, {}, u"12"_s, {}};
    EXPECT_TRUE(overlap(all, old));
    EXPECT_TRUE(overlap(old, from12));
    EXPECT_FALSE(overlap(old, young));
    EXPECT_FALSE(overlap(young, old));
    EXPECT_FALSE(overlap({u"5"_s, {}, {}, {}}, {{}, u"4"_s, {}, {}}));
    EXPECT_TRUE(overlap({u"5"_s, {}, {}, {}}, {{}, u"5"_s, {}, {}}));
}

} // namespace
