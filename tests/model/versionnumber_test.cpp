// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXVersionNumber.h>

#include "tests/support/environment.h"

using namespace Qt::StringLiterals;

namespace {

TXVersionNumber number(const QString &text) { return TXVersionNumber::versionNumberWithString(text); }

struct ParseCase {
    QString text;
    quint64 format;
    QString stringValue;
    quint64 majorVersion, minorVersion, patchVersion, suffix;
    QString suffixString;
    quint64 suffixVersion;
};

class VersionNumberParse : public testing::TestWithParam<ParseCase> {};

TEST_P(VersionNumberParse, GivesItsParts) {
    const ParseCase &c = GetParam();
    const TXVersionNumber n = number(c.text);
    EXPECT_EQ(n.format(), c.format);
    EXPECT_EQ(n.stringValue(), c.stringValue);
    EXPECT_EQ(n.majorVersion(), c.majorVersion);
    EXPECT_EQ(n.minorVersion(), c.minorVersion);
    EXPECT_EQ(n.patchVersion(), c.patchVersion);
    EXPECT_EQ(n.suffix(), c.suffix);
    EXPECT_EQ(n.suffixString(), c.suffixString);
    EXPECT_EQ(n.suffixString().isNull(), c.suffixString.isNull());
    EXPECT_EQ(n.suffixVersion(), c.suffixVersion);
    EXPECT_EQ(TXVersionNumber::parseAsMajorMinorPatch(c.text).has_value(), c.format == 0);
}

constexpr quint64 largest = 9223372036854775807;

INSTANTIATE_TEST_SUITE_P(
    Texts, VersionNumberParse,
    testing::Values(ParseCase{u"1.2"_s, 0, u"1.2"_s, 1, 2, 0, 5, {}, 0},
                    ParseCase{u"1.2.0"_s, 0, u"1.2"_s, 1, 2, 0, 5, {}, 0},
                    ParseCase{u"7"_s, 0, u"7.0"_s, 7, 0, 0, 5, {}, 0},
                    ParseCase{u"1.2.3"_s, 0, u"1.2.30"_s, 1, 2, 3, 5, {}, 0},
                    ParseCase{u"1.2.3b4"_s, 0, u"1.2.3b4"_s, 1, 2, 3, 3, u"b"_s, 4},
                    ParseCase{u"1.2b4"_s, 0, u"1.2b"_s, 1, 2, 0, 3, u"b"_s, 4},
                    ParseCase{u"1.0.0"_s, 0, u"1.0"_s, 1, 0, 0, 5, {}, 0},
                    ParseCase{u"2.0 beta"_s, 0, u"2.0b"_s, 2, 0, 0, 3, u"b"_s, 0},
                    ParseCase{u"3.1-beta2"_s, 0, u"3.1-beta"_s, 3, 1, 0, 0, u"-beta"_s, 2},
                    ParseCase{u"4.2 RC1"_s, 0, u"4.2fc"_s, 4, 2, 0, 4, u"fc"_s, 1},
                    ParseCase{u"4.2fc3"_s, 0, u"4.2fc"_s, 4, 2, 0, 4, u"fc"_s, 3},
                    ParseCase{u"1.0 dev 7"_s, 0, u"1.0d"_s, 1, 0, 0, 1, u"d"_s, 7},
                    ParseCase{u"1.0d7"_s, 0, u"1.0d"_s, 1, 0, 0, 1, u"d"_s, 7},
                    ParseCase{u"1.0alpha"_s, 0, u"1.0a"_s, 1, 0, 0, 2, u"a"_s, 0},
                    ParseCase{u"1.0a2"_s, 0, u"1.0a"_s, 1, 0, 0, 2, u"a"_s, 2},
                    ParseCase{u" 1 . 2 "_s, 0, u"1.2"_s, 1, 2, 0, 5, {}, 0},
                    ParseCase{u"1.2.3.4"_s, 0, u"1.2.3.4"_s, 1, 2, 3, 0, u"."_s, 4},
                    ParseCase{u"Version 3"_s, 1, u"version 3"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"1..2"_s, 1, u"1..2"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"1.2b3c"_s, 1, u"1.2b3c"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"1.2 3"_s, 1, u"1.2 3"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u""_s, 1, u""_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"+1.+2.+3"_s, 0, u"1.2.30"_s, 1, 2, 3, 5, {}, 0},
                    ParseCase{u"1.-2"_s, 0, u"1.4294967294"_s, 1, quint64(-2), 0, 5, {}, 0},
                    ParseCase{u"-1.0"_s, 0, u"4294967295.0"_s, quint64(-1), 0, 0, 5, {}, 0},
                    ParseCase{u"1.2b+3"_s, 0, u"1.2b+"_s, 1, 2, 0, 0, u"b+"_s, 3},
                    ParseCase{u"+"_s, 1, u"+"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"1.- 2"_s, 1, u"1.- 2"_s, 0, 0, 0, 5, {}, 0},
                    ParseCase{u"9223372036854775808"_s, 0, u"4294967295.0"_s, largest, 0, 0, 5, {}, 0},
                    ParseCase{u"4294967297.1"_s, 0, u"1.1"_s, 4294967297, 1, 0, 5, {}, 0}));

struct OrderCase {
    QString smaller;
    QString larger;
};

class VersionNumberOrder : public testing::TestWithParam<OrderCase> {};

TEST_P(VersionNumberOrder, PutsTheSmallerFirst) {
    const TXVersionNumber a = number(GetParam().smaller);
    const TXVersionNumber b = number(GetParam().larger);
    EXPECT_EQ(a.compare(b), -1);
    EXPECT_EQ(b.compare(a), 1);
    EXPECT_EQ(a.compare(a), 0);
}

INSTANTIATE_TEST_SUITE_P(Pairs, VersionNumberOrder,
                         testing::Values(OrderCase{u"2.0b1"_s, u"2.0b2"_s},
                                         OrderCase{u"2.0b2"_s, u"2.0rc1"_s}, OrderCase{u"2.0rc1"_s, u"2.0"_s},
                                         OrderCase{u"2.0d1"_s, u"2.0a1"_s}, OrderCase{u"2.0x1"_s, u"2.0d1"_s},
                                         OrderCase{u"1.2.3rc1"_s, u"1.2.3"_s},
                                         OrderCase{u"9.9"_s, u"Version 3"_s},
                                         OrderCase{u"1.2b3"_s, u"1.2b4"_s}, OrderCase{u"1.9"_s, u"1.10"_s},
                                         OrderCase{u"1.2.9"_s, u"1.2.10"_s},
                                         OrderCase{u"2.0x1"_s, u"2.0y1"_s}, OrderCase{u"alpha"_s, u"beta"_s},
                                         OrderCase{u"x\uE000"_s, u"x\U0001F600"_s})); // by code point

TEST(VersionNumber, EqualTextsAreEqualWhateverTheSuffixNumber) {
    EXPECT_TRUE(number(u"1.2b3"_s).isEqual(number(u"1.2b4"_s)));
    EXPECT_NE(number(u"1.2b3"_s).hash(), number(u"1.2b4"_s).hash());
    EXPECT_TRUE(number(u"1.2"_s) == number(u"1.2.0"_s));
    EXPECT_EQ(number(u"1.2"_s).compare(number(u"1.2.0"_s)), 0);
    EXPECT_FALSE(number(u"1.2"_s).isEqual(number(u"1.3"_s)));
}

TEST(VersionNumber, HashMixesThePartsWithAConstant) {
    EXPECT_EQ(number(u"1.2"_s).hash(), size_t(1 ^ 2 ^ 0 ^ 5 ^ 0 ^ 21845));
    EXPECT_EQ(number(u"16.32.64b128"_s).hash(), size_t(16 ^ 32 ^ 64 ^ 3 ^ 128 ^ 21845) ^ qHash(u"b"_s))
        << "each part counts";
    EXPECT_EQ(number(u"1.2.3 RC4"_s).hash(), number(u"1.2.3fc4"_s).hash()) << "what is equal";
    EXPECT_EQ(number(u"Word"_s).hash(), qHash(u"word"_s));
}

} // namespace
