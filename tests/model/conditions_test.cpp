// SPDX-License-Identifier: MIT
#include "model/conditions.h"
#include "model/feedentry.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdateItem.h>

using namespace Qt::StringLiterals;
using Member = tx::FeedEntry::Member;

namespace {

TEST(Conditions, EntryWithoutMembersHasNullBoundsAndNotFirst) {
    const auto conditions = tx::conditionsFrom({});
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
    const auto conditions = tx::conditionsFrom(entry);
    EXPECT_EQ(conditions.minimumAppBuild, u"1"_s);
    EXPECT_EQ(conditions.maximumAppBuild, u"2"_s);
    EXPECT_EQ(conditions.minimumSystemVersion, u"3"_s);
    EXPECT_EQ(conditions.maximumSystemVersion, u"4"_s);
    EXPECT_EQ(conditions.launch, TXUpdateConditionLaunchFirst);
    EXPECT_EQ(conditions, tx::conditionsFrom(entry));
}

TEST(Conditions, HostReadsThemFromADictionary) {
    const auto none = TXUpdateItemConditions::conditionsFromDictionary({});
    EXPECT_EQ(none, tx::conditionsFrom({}));
    EXPECT_TRUE(none.minimumAppBuild.isNull());
    EXPECT_EQ(none.launch, TXUpdateConditionLaunchNotFirst);
    const QVariantMap entry{{u"minBuild"_s, u"1"_s},         {u"maxBuild"_s, u"2"_s},
                            {u"minSystemVersion"_s, u"3"_s}, {u"maxSystemVersion"_s, u"4"_s},
                            {u"launch"_s, u"first"_s},       {u"title"_s, u"not looked at"_s}};
    const auto all = TXUpdateItemConditions::conditionsFromDictionary(entry);
    EXPECT_EQ(all.minimumAppBuild, u"1"_s);
    EXPECT_EQ(all.maximumAppBuild, u"2"_s);
    EXPECT_EQ(all.minimumSystemVersion, u"3"_s);
    EXPECT_EQ(all.maximumSystemVersion, u"4"_s);
    EXPECT_EQ(all.launch, TXUpdateConditionLaunchFirst);
    const auto other = TXUpdateItemConditions::conditionsFromDictionary(
        {{u"minBuild"_s, 1042},
         {u"maxBuild"_s, true},
         {u"minSystemVersion"_s, QVariant::fromValue(nullptr)},
         {u"maxSystemVersion"_s, QVariantList{1, u"x"_s}},
         {u"launch"_s, 1}});
    EXPECT_EQ(other.minimumAppBuild, u"1042"_s);
    EXPECT_EQ(other.maximumAppBuild, u"1"_s);
    EXPECT_TRUE(other.minimumSystemVersion.isNull()) << "null is absent";
    EXPECT_EQ(other.maximumSystemVersion, u"[1,\"x\"]"_s);
    EXPECT_EQ(other.launch, TXUpdateConditionLaunchNotFirst);
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
