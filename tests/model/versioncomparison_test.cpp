// SPDX-License-Identifier: MIT
#include "model/versioncomparison.h"
#include "tests/support/environment.h"

#include <TarvixUpdate/TXUpdater.h>

using namespace Qt::StringLiterals;

namespace {

struct Comparison {
    QString a;
    QString b;
    int expected;
};

class VersionComparison : public testing::TestWithParam<Comparison> {};

TEST_P(VersionComparison, OrdersAsTabled) {
    const auto &[a, b, expected] = GetParam();
    EXPECT_EQ(TXUpdater::compareVersionToVersion(a, b), expected)
        << a.toStdString() << " / " << b.toStdString();
    EXPECT_EQ(TXUpdater::compareVersionToVersion(b, a), -expected) << "the other way round";
}

INSTANTIATE_TEST_SUITE_P(
    Rules, VersionComparison,
    testing::Values(Comparison{u"1.0"_s, u"1.0.1"_s, -1}, Comparison{u"1.0b1"_s, u"1.0"_s, -1},
                    Comparison{u"1.0"_s, u"1.0a"_s, 1}, Comparison{u"1.0b2"_s, u"1.0b10"_s, -1},
                    Comparison{u"1.5"_s, u"1.10"_s, -1}, Comparison{u"1.0.1"_s, u"1.0b1"_s, 1},
                    Comparison{u"1.0a"_s, u"1.0b"_s, -1}, Comparison{u"1.0B"_s, u"1.0a"_s, -1},
                    Comparison{u"1.01"_s, u"1.1"_s, 0}, Comparison{u"1-0"_s, u"1.0"_s, 0},
                    Comparison{u"1..2"_s, u"1.2"_s, -1}, Comparison{u"2"_s, u"2.0"_s, -1},
                    Comparison{u"1.0 "_s, u"1.0"_s, 1}, Comparison{u""_s, u"1"_s, -1},
                    Comparison{u""_s, u"a"_s, 1}, Comparison{u"1.0"_s, u"1.0"_s, 0},
                    Comparison{u"1.0"_s, u"1.0.0"_s, -1}, Comparison{u"10.10"_s, u"10.9"_s, 1},
                    Comparison{QString(), u""_s, 0}, Comparison{QString(), u"1"_s, -1},
                    Comparison{u"1.99999999999"_s, u"1.99999999998"_s, 0}, // both at the limit
                    Comparison{u"2147483648"_s, u"2147483647"_s, 0},       // and not wrapped around it
                    Comparison{u"4294967296"_s, u"2147483646"_s, 1},
                    Comparison{u"99999999999999999999999"_s, u"1"_s, 1},
                    Comparison{u"2147483646"_s, u"2147483647"_s, -1}, Comparison{u"00000000001"_s, u"1"_s, 0},
                    Comparison{u"\u0661"_s, u"1"_s, 0},           // an Arabic-Indic one
                    Comparison{u"1\u066110"_s, u"1111"_s, -1},    // 1 1 10 is one run: 1110
                    Comparison{u"\U0001F600"_s, u"\uE000"_s, -1}, // by UTF-16 unit, not by code point
                    Comparison{u"1.0~rc"_s, u"1.0"_s, -1},        // a symbol is a text
                    Comparison{u"1_0"_s, u"1,0"_s, 0}, Comparison{u"1\n0"_s, u"1(0"_s, 0}));

TEST(VersionComparisonSplit, MakesRunsAndSingleSeparators) {
    EXPECT_EQ(TXUpdateSplitVersionString(u"1.0.12beta3"_s),
              (QStringList{u"1"_s, u"."_s, u"0"_s, u"."_s, u"12"_s, u"beta"_s, u"3"_s}));
    EXPECT_EQ(TXUpdateSplitVersionString(u"1..2"_s), (QStringList{u"1"_s, u"."_s, u"."_s, u"2"_s}));
    EXPECT_EQ(TXUpdateSplitVersionString(u""_s), QStringList());
    EXPECT_EQ(TXUpdateSplitVersionString(u"a+b"_s), QStringList{u"a+b"_s});
}

struct CharacterCase {
    QString text;
    unsigned expected;
};

class VersionCharacter : public testing::TestWithParam<CharacterCase> {};

TEST_P(VersionCharacter, HasItsType) {
    EXPECT_EQ(TXUpdateTypeOfVersionCharacter(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Classes, VersionCharacter,
    testing::Values(CharacterCase{u"."_s, 2}, CharacterCase{u"7"_s, 0}, CharacterCase{u"\u0663"_s, 0},
                    CharacterCase{u" "_s, 2}, CharacterCase{u"\t"_s, 2}, CharacterCase{u"\u2028"_s, 2},
                    CharacterCase{u"-"_s, 2}, CharacterCase{u"_"_s, 2}, CharacterCase{u"["_s, 2},
                    CharacterCase{u"\u00AB"_s, 2}, CharacterCase{u"a"_s, 1}, CharacterCase{u"+"_s, 1},
                    CharacterCase{u"~"_s, 1}, CharacterCase{u"\u00BD"_s, 1}, CharacterCase{u"\u00E9"_s, 1}));

class VersionComparator : public tx::test::FrameworkTest {};

TEST_F(VersionComparator, HostsOwnOneDecidesNewerButNotTheOrEqualTests) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setVersionComparator([](const QString &, const QString &) { return 1; });
    EXPECT_TRUE(TXUpdater::isVersionNewerThanVersion(u"1"_s, u"2"_s));
    EXPECT_FALSE(TXUpdater::isVersionNewerOrEqualToVersion(u"1"_s, u"2"_s));
    EXPECT_TRUE(TXUpdater::isVersionOlderOrEqualToVersion(u"1"_s, u"2"_s));
    EXPECT_EQ(updater->versionComparator()(u"1"_s, u"2"_s), 1);
    updater->setVersionComparator(nullptr);
    EXPECT_FALSE(TXUpdater::isVersionNewerThanVersion(u"1"_s, u"2"_s));
    EXPECT_TRUE(TXUpdater::isVersionNewerOrEqualToVersion(u"2"_s, u"2"_s));
    EXPECT_TRUE(TXUpdater::isVersionOlderOrEqualToVersion(u"2"_s, u"2"_s));
    EXPECT_EQ(updater->versionComparator()(u"1"_s, u"2"_s), -1);
}

} // namespace
