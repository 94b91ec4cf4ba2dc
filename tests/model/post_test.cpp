// SPDX-License-Identifier: MIT
#include "model/feedentry.h"
#include "model/feedvalues.h"
#include "model/handleddate.h"
#include "model/itemdate.h"
#include "model/packedentries.h"
#include "model/post_p.h"
#include "tests/support/environment.h"

#include <QTimeZone>

using namespace Qt::StringLiterals;

namespace {

struct DateCase {
    QString text;
    QString utc; ///< ISO 8601, or null for an invalid date
};

class ItemDate : public testing::TestWithParam<DateCase> {};

TEST_P(ItemDate, IsReadAsPacificTime) {
    const QDateTime date = tx::itemDateFromString(GetParam().text);
    EXPECT_EQ(date.isValid(), !GetParam().utc.isNull());
    EXPECT_EQ(date.toUTC().toString(Qt::ISODate), GetParam().utc);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, ItemDate,
    testing::Values(DateCase{u"2024-01-15 12:00:00"_s, u"2024-01-15T20:00:00Z"_s},
                    DateCase{u"2024-07-15 12:00:00"_s, u"2024-07-15T19:00:00Z"_s},
                    DateCase{u"2024-02-29 00:00:00"_s, u"2024-02-29T08:00:00Z"_s},
                    DateCase{u"2023-02-29 00:00:00"_s, {}}, DateCase{u"2024-01-15"_s, {}},
                    DateCase{u"2024-01-15T12:00:00"_s, {}}, DateCase{u"2024-01-15 25:00:00"_s, {}},
                    DateCase{u"2024-01-15 12:00:00 "_s, {}}, DateCase{u"Tue, 10 Jun 2003 04:00:00 GMT"_s, {}},
                    DateCase{u"2024-1x-15 12:00:00"_s, {}}, DateCase{u"2024-0:-15 12:00:00"_s, {}},
                    DateCase{u""_s, {}}, DateCase{QString(), {}}));

TEST(ItemDate, HourThatIsLeftOutIsNoneAndTheHourThatComesTwiceIsTheSecond) {
    EXPECT_FALSE(tx::itemDateFromString(u"2026-03-08 02:30:00"_s).isValid());
    EXPECT_EQ(tx::itemDateFromString(u"2026-11-01 01:30:00"_s).toUTC().toString(Qt::ISODate),
              u"2026-11-01T09:30:00Z"_s);
}

TEST(ItemDate, RulesAgreeWithTheZoneDatabase) {
    const QTimeZone zone("America/Los_Angeles");
    ASSERT_TRUE(zone.isValid());
    for (int year = 2007; year <= 2030; ++year) {
        for (QDate day(year, 1, 1); day.year() == year; day = day.addDays(1)) {
            for (int hour = 0; hour < 24; ++hour) {
                const QTime time(hour, 59, 59);
                const QDateTime byRule = tx::pacificTimeByRule(day, time);
                const QString text = day.toString(Qt::ISODate) + u' ' + time.toString(Qt::ISODate);
                ASSERT_EQ(byRule, tx::itemDateFromString(text)) << text.toStdString();
                const QDateTime utc(day, time, Qt::UTC);
                ASSERT_EQ(tx::pacificOffsetByRule(utc), zone.offsetFromUtc(utc)) << text.toStdString();
            }
        }
    }
}

TEST(HandledDate, OwnOffsetDoesNotDependOnTheUsersZone) {
    const bool wasSet = qEnvironmentVariableIsSet("TZ");
    const QByteArray before = qgetenv("TZ");
    qputenv("TZ", "America/Los_Angeles"); // where 2 to 3 o'clock of this day does not exist
    EXPECT_EQ(tx::handledPostDate(u"2023-03-12T02:30:00+0000"_s).toUTC().toString(Qt::ISODate),
              u"2023-03-12T02:30:00Z"_s);
    wasSet ? qputenv("TZ", before) : qunsetenv("TZ"); // set to nothing it means UTC
}

TEST(HandledDate, TakesAZoneAndRefusesTheFeedsForm) {
    EXPECT_EQ(tx::handledPostDate(u"2024-01-15T12:00:00+0100"_s).toUTC().toString(Qt::ISODate),
              u"2024-01-15T11:00:00Z"_s);
    EXPECT_EQ(tx::handledPostDate(u"2024-01-15T12:00:00-0830"_s).toUTC().toString(Qt::ISODate),
              u"2024-01-15T20:30:00Z"_s);
    EXPECT_FALSE(tx::handledPostDate(u"2024-01-15 12:00:00"_s).isValid());
    EXPECT_FALSE(tx::handledPostDate(u"2024-01-15T12:00:00"_s).isValid());
    EXPECT_FALSE(tx::handledPostDate(u"2024-13-15T12:00:00+0000"_s).isValid());
}

TEST(Post, DisplayTimesAreExactTexts) {
    EXPECT_EQ(TXUpdatePostDisplayTimeFromString(u"atQuit"_s), 1);
    EXPECT_EQ(TXUpdatePostDisplayTimeFromString(u"passive"_s), 2);
    for (const QString &other : {u"atquit"_s, u"Passive"_s, u""_s, QString()})
        EXPECT_EQ(TXUpdatePostDisplayTimeFromString(other), 0) << other.toStdString();
}

TEST(Post, IdentifierIsDateAndTitleAsWritten) {
    TXUpdatePost post;
    post.setTitle(u"News"_s);
    post.setDateString(u"whenever"_s);
    EXPECT_EQ(post.identifier(), (QVariantMap{{u"date"_s, u"whenever"_s}, {u"title"_s, u"News"_s}}));
    EXPECT_FALSE(post.date().isValid());
    EXPECT_FALSE(post.endDate().isValid());
    post.setEndDateString(u"2024-01-15 12:00:00"_s);
    EXPECT_EQ(post.endDate().toUTC().toString(Qt::ISODate), u"2024-01-15T20:00:00Z"_s);
}

/// Makes a post as a feed parser does.
TXUpdatePostPtr postOfAFeed() {
    using Member = tx::FeedEntry::Member;
    tx::FeedEntry entry;
    entry.set(Member::Title, "News");
    entry.set(Member::Date, "2024-01-15 12:00:00");
    entry.set(Member::PostURL, "https://e.org/news");
    entry.set(Member::Display, "passive");
    entry.set(Member::MinBuild, "7");
    return TXUpdatePostPrivate::make(tx::packed(entry));
}

TEST(Post, CopiesOutliveThePostOfTheFeed) {
    TXUpdatePostPtr original = postOfAFeed();
    const TXUpdatePost unchanged(*original);
    original->setTitle(u"Changed"_s);
    TXUpdatePost changed;
    changed = *original;
    original.reset();
    EXPECT_EQ(unchanged.title(), u"News"_s);
    EXPECT_EQ(changed.title(), u"Changed"_s);
    for (const TXUpdatePost *post : {&unchanged, &std::as_const(changed)}) {
        EXPECT_EQ(post->dateString(), u"2024-01-15 12:00:00"_s);
        EXPECT_EQ(post->postURL(), QUrl(u"https://e.org/news"_s));
        EXPECT_EQ(post->displayTime(), TXUpdatePostDisplayTimePassive);
        ASSERT_TRUE(post->conditions());
        EXPECT_EQ(post->conditions()->minimumAppBuild, u"7"_s);
    }
}

TEST(Post, ChangeOfACopyLeavesTheOtherAlone) {
    for (const bool ofAFeed : {true, false}) {
        const TXUpdatePostPtr post = ofAFeed ? postOfAFeed() : std::make_shared<TXUpdatePost>();
        post->setTitle(u"One"_s);
        TXUpdatePost copy(*post);
        TXUpdatePost assigned;
        assigned = copy;
        copy.setTitle(u"Two"_s);
        assigned.setTitle(u"Three"_s);
        EXPECT_EQ(post->title(), u"One"_s);
        EXPECT_EQ(copy.title(), u"Two"_s);
        EXPECT_EQ(assigned.title(), u"Three"_s);
        *post = copy; // the memory of the feed is not changed
        copy.setTitle(u"Four"_s);
        EXPECT_EQ(post->title(), u"Two"_s);
    }
}

TEST(Post, NewOneHasNothing) {
    const TXUpdatePost post;
    EXPECT_TRUE(post.title().isNull());
    EXPECT_TRUE(post.postURL().isEmpty());
    EXPECT_FALSE(post.conditions());
    EXPECT_EQ(post.displayTime(), TXUpdatePostDisplayTimeDefault);
    EXPECT_EQ(post.preferredDisplaySize(), QSizeF(0, 0));
}

TEST(FeedValues, AddressesAreEncodedRatherThanRefused) {
    const QList<std::pair<QString, QString>> cases{{u"https://e.org/a b.zip"_s, u"https://e.org/a%20b.zip"_s},
                                                   {u"https://e.org/\u00FC"_s, u"https://e.org/%C3%BC"_s},
                                                   {u"  https://e.org/x  "_s, u"https://e.org/x"_s},
                                                   {u"https://e.org/%2F%25"_s, u"https://e.org/%2F%25"_s},
                                                   {u"http://[broken"_s, u""_s},
                                                   {u"http://e.org:port/"_s, u""_s},
                                                   {u""_s, u""_s},
                                                   {QString(), u""_s}};
    for (const auto &[text, encoded] : cases)
        EXPECT_EQ(tx::urlFromFeedText(text).toString(QUrl::FullyEncoded), encoded) << text.toStdString();
}

TEST(FeedValues, EncodedAddressesAreTheSameOnBothRoads) {
    for (const QString &text :
         {u"https://e.org/a/B-c_d~1.zip"_s, u"http://a-b.example.org/"_s, u"https://e.org"_s,
          u"https://E.org/x"_s, u"https://e.org:8080/x"_s, u"https://127.1/x"_s, u"https://e.org/x?y=z#f"_s,
          u"https://e.org/a b"_s, u"https://e.org/%41"_s, u"https://-e.org/"_s, u"https://.org/"_s,
          u"https:///x"_s, u"ftp://e.org/x"_s, u"https://e..org/x"_s, u"https://e.org/../x"_s, u"http://["_s,
          u"plain"_s, u""_s, u"https://\u00FC.org/"_s}) {
        const QByteArray utf8 = text.toUtf8();
        EXPECT_EQ(tx::encodedUrlFromFeedText({utf8.constData(), size_t(utf8.size())}),
                  tx::urlFromFeedText(text).toEncoded())
            << text.toStdString();
    }
    EXPECT_TRUE(tx::encodedUrlFromFeedText({}).isEmpty());
}

TEST(FeedValues, SizesInBraces) {
    const QList<std::pair<QString, QSizeF>> cases{{u"{640, 480}"_s, {640, 480}},
                                                  {u"{640.5,480}"_s, {640.5, 480}},
                                                  {u" { 1 , 2 } "_s, {1, 2}},
                                                  {u"640, 480"_s, {0, 0}},
                                                  {u"{640}"_s, {0, 0}},
                                                  {u"{a, b}"_s, {0, 0}},
                                                  {u"{1, 2, 3}"_s, {0, 0}},
                                                  {u"{-1, 2}"_s, {0, 0}},
                                                  {u"{1, -2}"_s, {0, 0}},
                                                  {u"{1, inf}"_s, {0, 0}},
                                                  {u"{nan, 2}"_s, {0, 0}},
                                                  {u""_s, {0, 0}},
                                                  {QString(), {0, 0}}};
    for (const auto &[text, size] : cases)
        EXPECT_EQ(tx::sizeFromFeedText(text), size) << text.toStdString();
}

} // namespace
