// SPDX-License-Identifier: MIT
#include "model/itemdate.h"
#include "model/versioncomparison.h"
#include "os/userdefaults.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdateSettings.h>
#include <TarvixUpdate/TXUpdateTrack.h>

#include <ctime>

using namespace Qt::StringLiterals;
using tx::UserDefaults;

namespace {

class Track : public tx::test::FrameworkTest {
protected:
    const QDateTime now = QDateTime(QDate(2026, 6, 1), QTime(12, 0), Qt::UTC);

    Track() { setNow(now); }

    static TXUpdatePtr update(const QString &version, const QDateTime &date = {}) {
        auto result = std::make_shared<TXUpdate>();
        result->setVersion(version);
        if (date.isValid())
            result->setDateString(tx::itemDateToString(date));
        return result;
    }
    static TXUpdatePostPtr post(const QString &title, const QDateTime &date,
                                TXUpdatePostDisplayTime time = TXUpdatePostDisplayTimeDefault) {
        auto result = std::make_shared<TXUpdatePost>();
        result->setTitle(title);
        result->setDateString(date.isValid() ? tx::itemDateToString(date) : u"undated"_s);
        result->setDisplayTime(time);
        return result;
    }
    static TXUpdateTrack updates(const QList<TXUpdatePtr> &list) { return {u"release"_s, list, {}}; }
    static TXUpdateTrack posts(const QList<TXUpdatePostPtr> &list) { return {u"release"_s, {}, list}; }
    static QStringList titles(const QList<TXUpdatePostPtr> &list) {
        QStringList result;
        for (const TXUpdatePostPtr &p : list)
            result << p->title();
        return result;
    }
    static QVariantList handled() {
        return UserDefaults::standard()
            .mapValue(TXUpdatePrefPostsCheckInfoKey)
            .value(u"release"_s)
            .toMap()
            .value(u"handledPosts"_s)
            .toList();
    }
    static void storeHandled(const QVariantList &list) {
        ASSERT_TRUE(UserDefaults::standard()
                        .setValue(TXUpdatePrefPostsCheckInfoKey,
                                  QVariantMap{{u"release"_s, QVariantMap{{u"handledPosts"_s, list}}}})
                        .isNull());
    }
};

TEST_F(Track, HostsOwnComparatorDecidesWhatIsNewest) {
    const TXUpdateTrack track = updates({update(u"2"_s), update(u"1"_s), update(u"3"_s)});
    EXPECT_EQ(track.recommendedUpdate()->version(), u"3"_s);
    tx::setVersionComparator([](const QString &a, const QString &b) { return tx::compareVersions(b, a); });
    EXPECT_EQ(track.recommendedUpdate()->version(), u"1"_s);
    update(u"2"_s)->ignore();
    const TXUpdatePtr best = track.recommendedUpdate();
    tx::setVersionComparator(nullptr);
    ASSERT_TRUE(best) << "what is newer than the ignored one";
    EXPECT_EQ(best->version(), u"1"_s);
}

TEST_F(Track, RecommendsTheNewestAndTheFirstOfEqualOnes) {
    const QList<TXUpdatePtr> list{update(u"2"_s), update(u"3"_s), update(u"3"_s), update(u"1"_s)};
    EXPECT_EQ(updates(list).recommendedUpdate(), list[1]);
    EXPECT_EQ(updates({}).recommendedUpdate(), nullptr);
}

TEST_F(Track, PassesOverIgnoredUpdates) {
    const QList<TXUpdatePtr> list{update(u"2"_s), update(u"3"_s), update(u"4"_s)};
    list[1]->ignore();
    EXPECT_EQ(updates(list).recommendedUpdate(), list[2]);
    list[2]->ignore();
    EXPECT_EQ(updates(list).recommendedUpdate(), nullptr);
}

TEST_F(Track, RecommendsOnlyWhatIsDatedBeforeTheLimit) {
    const QList<TXUpdatePtr> list{update(u"2"_s, now.addDays(-2)), update(u"3"_s, now), update(u"4"_s)};
    EXPECT_EQ(updates(list).recommendedUpdateBefore(now), list[0]) << "neither the limit itself nor no date";
    EXPECT_EQ(updates(list).recommendedUpdateBefore(now.addSecs(1)), list[1]);
    EXPECT_EQ(updates(list).recommendedUpdateBefore({}), list[2]);
}

TEST_F(Track, RecentPostsGoBackNinetyDaysToTheSecond) {
    const TXUpdateTrack track = posts({post(u"new"_s, now), post(u"edge"_s, now.addSecs(-7776000)),
                                       post(u"old"_s, now.addSecs(-7776001)), post(u"undated"_s, {})});
    EXPECT_EQ(titles(track.recentPosts()), (QStringList{u"new"_s, u"edge"_s, u"undated"_s}));
    EXPECT_EQ(titles(track.postsSinceDate(now.addSecs(1))), QStringList{u"undated"_s});
}

TEST_F(Track, UnhandledPostsHaveTheDisplayTimeAndAreNotRecorded) {
    const TXUpdatePostPtr seen = post(u"seen"_s, now.addDays(-1));
    const TXUpdateTrack track = posts(
        {seen, post(u"fresh"_s, now), post(u"quit"_s, now, TXUpdatePostDisplayTimeAtQuit),
         post(u"passive"_s, now, TXUpdatePostDisplayTimePassive), post(u"ancient"_s, now.addDays(-91))});
    EXPECT_EQ(titles(track.postsToDisplayDefault()), (QStringList{u"seen"_s, u"fresh"_s}));
    track.updatePostsCheckInfoToHandlePosts({seen});
    EXPECT_EQ(titles(track.postsToDisplayDefault()), QStringList{u"fresh"_s});
    EXPECT_EQ(titles(track.unhandledPostsWithDisplayTime(TXUpdatePostDisplayTimeAtQuit)),
              QStringList{u"quit"_s});
    EXPECT_EQ(titles(track.unhandledPostsWithDisplayTime(TXUpdatePostDisplayTimePassive)),
              QStringList{u"passive"_s});
}

TEST_F(Track, RecordHoldsOnlyThePostsOfTheLatestCall) {
    const TXUpdatePostPtr one = post(u"1"_s, now);
    const TXUpdatePostPtr two = post(u"2"_s, now);
    const TXUpdatePostPtr three = post(u"3"_s, now);
    const TXUpdateTrack track = posts({one, two, three});
    track.updatePostsCheckInfoToHandlePosts({one, two, one});
    EXPECT_EQ(handled(), (QVariantList{one->identifier(), two->identifier()})) << "each once";
    track.updatePostsCheckInfoToHandlePosts({three});
    EXPECT_EQ(handled(), QVariantList{three->identifier()});
}

TEST_F(Track, TitlesThatXmlCannotHoldKeepTheirIdentity) {
    const QStringList texts{u"bell \x07"_s,
                            u"bell \x08"_s,
                            u"bell \uFFFD"_s,
                            u"bell "_s,
                            u"bell %0007"_s,
                            u"escaped:bell %0007"_s,
                            u"escaped:bell %250007"_s,
                            u"bell \x07%0007"_s,
                            u"bell %0007\x07"_s,
                            u"nul \0x"_s,
                            u"\uFFFE"_s,
                            u"\uFFFF"_s,
                            QString(1, QChar(0xD83D)),
                            QString(1, QChar(0xDE00)) + QString(1, QChar(0xD83D)),
                            u"line\rfeed"_s,
                            u"line\nfeed"_s,
                            u"line\r\nfeed"_s,
                            u"tab\tand \"<&'>\" \u00FC\U0001F600"_s,
                            u" spaces "_s,
                            u"\n"_s,
                            u""_s};
    QList<TXUpdatePostPtr> all;
    for (const QString &text : texts)
        all << post(text, now);
    for (const TXUpdatePostPtr &one : all) {
        posts(all).updatePostsCheckInfoToHandlePosts({one});
        QList<TXUpdatePostPtr> others = all;
        others.removeOne(one);
        EXPECT_EQ(posts(all).postsToDisplayDefault(), others) << one->title().toStdString();
    }
    // Dates and names of tracks are texts, too.
    for (const QString &name : {u"beta\x01"_s, u"beta\x02"_s}) {
        const TXUpdateTrack track(name, {}, {all[0], all[1]});
        EXPECT_EQ(track.postsToDisplayDefault().size(), 2);
        track.updatePostsCheckInfoToHandlePosts({all[1]});
        EXPECT_EQ(track.postsToDisplayDefault(), QList<TXUpdatePostPtr>{all[0]});
    }
    all = {post(u"a"_s, now), post(u"a"_s, now)};
    all[0]->setDateString(u"some day\x01"_s);
    all[1]->setDateString(u"some day\x02"_s);
    posts(all).updatePostsCheckInfoToHandlePosts({all[0]});
    EXPECT_EQ(posts(all).postsToDisplayDefault(), QList<TXUpdatePostPtr>{all[1]});
}

TEST_F(Track, RecordHoldsOrdinaryTextsUnchangedAndOthersEscaped) {
    const TXUpdatePostPtr plain = post(u"100 % \u00FC"_s, now);
    const TXUpdatePostPtr strange = post(u"100 %\x1B"_s, now);
    const TXUpdateTrack track = posts({plain, strange});
    track.updatePostsCheckInfoToHandlePosts({plain, strange, strange});
    EXPECT_EQ(handled(),
              (QVariantList{plain->identifier(), QVariantMap{{u"date"_s, strange->dateString()},
                                                             {u"title"_s, u"escaped:100 %0025%001b"_s}}}));
    EXPECT_EQ(strange->identifier().value(u"title"_s), u"100 %\x1B"_s) << "the post's own stays as it is";
}

TEST_F(Track, DateFormatterReadsAndWritesTheRecordsForm) {
    const QByteArray zoneBefore = qgetenv("TZ");
    const QDateTime date(QDate(2026, 5, 20), QTime(22, 15, 1), Qt::UTC);
    const TXUpdateDateFormatter formatter = TXUpdateTrack::postsCheckDateFormatter();
    const std::pair<const char *, QString> zones[] = {{"UTC", u"2026-05-20T22:15:01+0000"_s},
                                                      {"IST-5:30", u"2026-05-21T03:45:01+0530"_s},
                                                      {"NST3:30", u"2026-05-20T18:45:01-0330"_s},
                                                      {"XXX0:30", u"2026-05-20T21:45:01-0030"_s}};
    for (const auto &[zone, text] : zones) {
        qputenv("TZ", zone);
        tzset();
        EXPECT_EQ(formatter.stringFromDate(date), text) << zone;
        EXPECT_EQ(formatter.dateFromString(text), date) << zone;
    }
    zoneBefore.isNull() ? qunsetenv("TZ") : qputenv("TZ", zoneBefore);
    tzset();
    EXPECT_TRUE(formatter.stringFromDate({}).isNull());
    EXPECT_FALSE(formatter.dateFromString(u"2026-05-20 22:15:01"_s).isValid()) << "the form of feeds";
}

TEST_F(Track, OlderEntriesWithAReadableRecentDateAreKeptAsThatText) {
    const QString recent = u"2026-05-20T00:00:00+0000"_s;
    storeHandled({QVariantMap{{u"date"_s, recent}, {u"title"_s, u"a"_s}},
                  QVariantMap{{u"date"_s, u"2026-05-02T12:00:00+0000"_s}, {u"title"_s, u"thirty days"_s}},
                  QVariantMap{{u"title"_s, u"no date"_s}}, u"2026-05-21T00:00:00+0000"_s});
    const TXUpdatePostPtr one = post(u"1"_s, now);
    posts({one}).updatePostsCheckInfoToHandlePosts({one});
    EXPECT_EQ(handled(), (QVariantList{recent, one->identifier()}));
}

TEST_F(Track, NothingElseInTheRecordChanges) {
    const QVariantMap other{{u"handledPosts"_s, QVariantList{}}, {u"more"_s, u"kept"_s}};
    ASSERT_TRUE(
        UserDefaults::standard()
            .setValue(TXUpdatePrefPostsCheckInfoKey,
                      QVariantMap{{u"beta"_s, other}, {u"release"_s, QVariantMap{{u"own"_s, u"kept"_s}}}})
            .isNull());
    posts({}).updatePostsCheckInfoToHandlePosts({post(u"1"_s, now)});
    const QVariantMap record = UserDefaults::standard().mapValue(TXUpdatePrefPostsCheckInfoKey);
    EXPECT_EQ(record.value(u"beta"_s).toMap(), other);
    EXPECT_EQ(record.value(u"release"_s).toMap().value(u"own"_s), u"kept"_s);
    EXPECT_EQ(posts({}).postsCheckInfo(), record.value(u"release"_s).toMap());
}

TEST_F(Track, LatestHandledDateComesFromEntriesThatParse) {
    EXPECT_FALSE(posts({}).dateOfMostRecentlyHandledPost().isValid());
    storeHandled({QVariantMap{{u"date"_s, u"2026-05-20T00:00:00+0000"_s}},
                  QVariantMap{{u"date"_s, u"2026-05-22T00:00:00+0000"_s}},
                  QVariantMap{{u"date"_s, u"2026-05-21T00:00:00+0000"_s}}, u"2026-05-30T00:00:00+0000"_s,
                  QVariantMap{{u"date"_s, u"2026-05-31 00:00:00"_s}}, QVariantMap{}});
    EXPECT_EQ(posts({}).dateOfMostRecentlyHandledPost(), QDateTime(QDate(2026, 5, 22), QTime(0, 0), Qt::UTC));
    const TXUpdateTrack track =
        posts({post(u"before"_s, QDateTime(QDate(2026, 5, 21), QTime(0, 0), Qt::UTC)),
               post(u"after"_s, QDateTime(QDate(2026, 5, 23), QTime(0, 0), Qt::UTC))});
    EXPECT_EQ(titles(track.recentUnhandledPosts()), QStringList{u"after"_s});
}

TEST_F(Track, RecordOfThisVersionGivesNoDateAndFallsBackToNinetyDays) {
    const TXUpdateTrack track = posts({post(u"old"_s, now.addDays(-80)), post(u"new"_s, now)});
    track.updatePostsCheckInfoToHandlePosts(track.posts());
    EXPECT_FALSE(track.dateOfMostRecentlyHandledPost().isValid());
    EXPECT_EQ(titles(track.recentUnhandledPosts()), (QStringList{u"old"_s, u"new"_s}));
}

} // namespace
