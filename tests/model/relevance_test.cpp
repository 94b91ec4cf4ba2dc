// SPDX-License-Identifier: MIT
#include "model/relevance.h"
#include "os/userdefaults.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdater.h>

using namespace Qt::StringLiterals;
using tx::UserDefaults;

namespace {

class Relevance : public tx::test::FrameworkTest {
protected:
    static TXUpdatePtr updateWithVersion(const QString &version) {
        auto update = std::make_shared<TXUpdate>();
        update->setVersion(version);
        return update;
    }
    static bool relevant(const TXUpdateItem &item, const QString &build,
                         const QString &system = u"12.0.0"_s) {
        return TXUpdater::isItemRelevantForAppBuild(item, build, system);
    }
};

TEST_F(Relevance, UpdateWithoutConditionsMustBeNewerThanTheBuild) {
    EXPECT_TRUE(relevant(*updateWithVersion(u"1043"_s), u"1042"_s));
    EXPECT_FALSE(relevant(*updateWithVersion(u"1042"_s), u"1042"_s));
    EXPECT_FALSE(relevant(*updateWithVersion(u"1041"_s), u"1042"_s));
}

TEST_F(Relevance, BoundsAreInclusive) {
    struct Case {
        QString TXUpdateItemConditions::*bound;
        QString value, build, system;
        bool expected;
    };
    using C = TXUpdateItemConditions;
    const Case cases[] = {
        {&C::minimumSystemVersion, u"11.0"_s, u"1"_s, u"10.15.7"_s, false},
        {&C::minimumSystemVersion, u"11.0"_s, u"1"_s, u"11.0.0"_s, true},
        {&C::minimumSystemVersion, u"11.0.0"_s, u"1"_s, u"11.0.0"_s, true},
        {&C::maximumSystemVersion, u"11.0.0"_s, u"1"_s, u"11.0.0"_s, true},
        {&C::maximumSystemVersion, u"11.0"_s, u"1"_s, u"11.0.0"_s, false},
        {&C::maximumAppBuild, u"1042"_s, u"1042"_s, u"12.0.0"_s, true},
        {&C::maximumAppBuild, u"1042"_s, u"1043"_s, u"12.0.0"_s, false},
        {&C::minimumAppBuild, u"1042"_s, u"1042"_s, u"12.0.0"_s, true},
        {&C::minimumAppBuild, u"1042"_s, u"1041"_s, u"12.0.0"_s, false},
        {&C::minimumAppBuild, u""_s, u"1041"_s, u"12.0.0"_s, true},
    };
    for (const Case &c : cases) {
        TXUpdateItemConditions conditions;
        conditions.*c.bound = c.value;
        const auto update = updateWithVersion(u"9999"_s);
        update->setConditions(conditions);
        EXPECT_EQ(relevant(*update, c.build, c.system), c.expected)
            << c.value.toStdString() << " for " << c.build.toStdString() << " on " << c.system.toStdString();
    }
}

TEST_F(Relevance, PostIsNeverDroppedForItsVersionOrDate) {
    TXUpdatePost post;
    post.setDateString(u"1999-01-01 00:00:00"_s);
    EXPECT_TRUE(relevant(post, u"99999"_s));
    TXUpdateItemConditions conditions;
    conditions.minimumAppBuild = u"2"_s;
    post.setConditions(conditions);
    EXPECT_FALSE(relevant(post, u"1"_s));
}

TEST_F(Relevance, BoundsIgnoreAHostsOwnComparator) {
    TXUpdater::sharedUpdater()->setVersionComparator([](const QString &, const QString &) { return 1; });
    TXUpdateItemConditions conditions;
    conditions.minimumAppBuild = u"5"_s;
    const auto update = updateWithVersion(u"1"_s);
    update->setConditions(conditions);
    EXPECT_FALSE(relevant(*update, u"4"_s));
    EXPECT_TRUE(relevant(*update, u"5"_s)); // "newer" is the host's word
    TXUpdater::sharedUpdater()->setVersionComparator(nullptr);
}

TEST_F(Relevance, FilterKeepsTheOrder) {
    const QList<TXUpdatePtr> items{updateWithVersion(u"3"_s), updateWithVersion(u"1"_s),
                                   updateWithVersion(u"2"_s), updateWithVersion(u"4"_s)};
    const auto kept = TXUpdater::relevantItemsForAppBuild(items, u"1"_s, u"12.0.0"_s);
    ASSERT_EQ(kept.size(), 3);
    EXPECT_EQ(kept[0], items[0]);
    EXPECT_EQ(kept[1], items[2]);
    EXPECT_EQ(kept[2], items[3]);
}

class Ignoring : public Relevance {
protected:
    const QDateTime start = QDateTime(QDate(2026, 1, 10), QTime(12, 0), Qt::UTC);
    bool ignored(const QString &version) { return TXUpdater::isUpdateIgnored(*updateWithVersion(version)); }
    QVariant record() { return UserDefaults::standard().value(TXUpdatePrefIgnoreVersionKey); }
};

TEST_F(Ignoring, CoversTheVersionAndOlderOnesForThirtyDays) {
    setNow(start);
    updateWithVersion(u"2.3"_s)->ignore();
    setNow(start.addDays(1));
    EXPECT_TRUE(ignored(u"2.3"_s));
    EXPECT_TRUE(ignored(u"2.2"_s));
    EXPECT_FALSE(ignored(u"2.4"_s));
    setNow(start.addSecs(2592000));
    EXPECT_TRUE(ignored(u"2.3"_s)) << "the very second of the expiry still counts";
    EXPECT_FALSE(ignored(u"2.4"_s));
    setNow(start.addDays(31));
    EXPECT_FALSE(ignored(u"2.4"_s));
    EXPECT_TRUE(record().isValid()) << "an update that the record does not cover never clears it";
    EXPECT_FALSE(ignored(u"2.2"_s));
    EXPECT_FALSE(record().isValid()) << "an expired record is removed";
}

TEST_F(Ignoring, RecordHoldsVersionAndDateAndIsReplaced) {
    setNow(start);
    updateWithVersion(u"2.3"_s)->ignore();
    EXPECT_EQ(record().toMap(), (QVariantMap{{u"version"_s, u"2.3"_s}, {u"date"_s, start}}));
    updateWithVersion(u"2.1"_s)->ignore();
    EXPECT_EQ(record().toMap().value(u"version"_s), u"2.1"_s);
    EXPECT_FALSE(ignored(u"2.3"_s));
}

TEST_F(Ignoring, PlainTextOfAnEarlierFormIgnoresNothingAndStays) {
    ASSERT_TRUE(UserDefaults::standard().setValue(TXUpdatePrefIgnoreVersionKey, u"2.3"_s).isNull());
    EXPECT_FALSE(ignored(u"2.3"_s));
    EXPECT_EQ(record(), u"2.3"_s);
}

TEST_F(Ignoring, RecordWithoutDateOrVersionIgnoresNothing) {
    ASSERT_TRUE(UserDefaults::standard()
                    .setValue(TXUpdatePrefIgnoreVersionKey, QVariantMap{{u"version"_s, u"2.3"_s}})
                    .isNull());
    EXPECT_FALSE(ignored(u"2.3"_s));
    ASSERT_TRUE(UserDefaults::standard()
                    .setValue(TXUpdatePrefIgnoreVersionKey, QVariantMap{{u"date"_s, start}})
                    .isNull());
    EXPECT_FALSE(ignored(u""_s));
    EXPECT_TRUE(record().isValid());
}

} // namespace
