// SPDX-License-Identifier: MIT
#include "feed/feedentry.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdateItem.h>

using namespace Qt::StringLiterals;
using Member = tx::FeedEntry::Member;

namespace {

TEST(Conditions, EntryWithoutMembersHasNullBoundsAndNotFirst) {
    const auto conditions = TXUpdateItemConditions::conditionsFromDictionary({});
    EXPECT_TRUE(conditions.minimumAppBuild.isNull());
    EXPECT_TRUE(conditions.maximumAppBuild.isNull());
    EXPECT_TRUE(conditions.minimumSystemVersion.isNull());
    EXPECT_TRUE(conditions.maximumSystemVersion.isNull());
    EXPECT_EQ(conditions.launch, TXUpdateConditionLaunchNotFirst);
}

TEST(Conditions, EachMemberFillsItsBound) {
    tx::FeedEntry entry;
    entry.set(Member::MinBuild, "1");
    entry.set(Member::MaxBuild, "2");
    entry.set(Member::MinSystemVersion, "3");
    entry.set(Member::MaxSystemVersion, "4");
    entry.set(Member::Launch, "first");
    const auto conditions = TXUpdateItemConditions::conditionsFromDictionary(entry);
    EXPECT_EQ(conditions.minimumAppBuild, u"1"_s);
    EXPECT_EQ(conditions.maximumAppBuild, u"2"_s);
    EXPECT_EQ(conditions.minimumSystemVersion, u"3"_s);
    EXPECT_EQ(conditions.maximumSystemVersion, u"4"_s);
    EXPECT_EQ(conditions.launch, TXUpdateConditionLaunchFirst);
    EXPECT_EQ(conditions, TXUpdateItemConditions::conditionsFromDictionary(entry));
}

TEST(Conditions, LaunchTextsAreExact) {
    EXPECT_EQ(TXUpdateConditionLaunchFromString(u"any"_s), 0U);
    EXPECT_EQ(TXUpdateConditionLaunchFromString(u"first"_s), 1U);
    EXPECT_EQ(TXUpdateConditionLaunchFromString(u"notFirst"_s), 2U);
    for (const QString &other : {u"First"_s, u""_s, u"sometimes"_s, QString()})
        EXPECT_EQ(TXUpdateConditionLaunchFromString(other), 2U) << other.toStdString();
}

TEST(Conditions, LaunchRequirementIsMetAsTabled) {
    constexpr bool table[3][3] = {{true, true, true}, {false, true, false}, {false, false, true}};
    for (quint64 required = 0; required < 3; ++required) {
        for (quint64 current = 0; current < 3; ++current)
            EXPECT_EQ(TXUpdateConditionLaunchSatisfied(TXUpdateConditionLaunch(required),
                                                       TXUpdateConditionLaunch(current)),
                      table[required][current])
                << required << '/' << current;
    }
}

TEST(Conditions, DifferInEachMemberAndInAbsence) {
    const TXUpdateItemConditions plain;
    for (QString TXUpdateItemConditions::*member :
         {&TXUpdateItemConditions::minimumAppBuild, &TXUpdateItemConditions::maximumAppBuild,
          &TXUpdateItemConditions::minimumSystemVersion, &TXUpdateItemConditions::maximumSystemVersion}) {
        TXUpdateItemConditions other;
        other.*member = u""_s;
        EXPECT_FALSE(plain.isEqual(other)) << "absent is not empty";
        TXUpdateItemConditions third;
        third.*member = u"1"_s;
        EXPECT_FALSE(other.isEqual(third));
        EXPECT_TRUE(third.isEqual(third));
    }
    TXUpdateItemConditions launch;
    launch.launch = TXUpdateConditionLaunchFirst;
    EXPECT_FALSE(plain.isEqual(launch));
}

} // namespace
