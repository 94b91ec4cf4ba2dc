// SPDX-License-Identifier: MIT
#include "trust/digest.h"
#include "trust/encoding.h"

#include <gtest/gtest.h>

#include <array>

using namespace tx::trust;

namespace {

std::string hex(const Digest &digest) {
    std::string result;
    for (const unsigned char byte : digest) {
        char text[3];
        std::snprintf(text, sizeof text, "%02x", byte);
        result += text;
    }
    return result;
}

TEST(TrustEncoding, Base64IsReadInItsOneFormOnly) {
    std::array<unsigned char, 4> bytes{};
    ASSERT_TRUE(decodeBase64("AP8Q+w==", bytes.data(), 4));
    EXPECT_EQ(bytes, (std::array<unsigned char, 4>{0x00, 0xFF, 0x10, 0xFB}));
    EXPECT_EQ(base64(bytes.data(), 4), "AP8Q+w==");
    for (const char *text : {"", "AP8Q+w=", "AP8Q+w",
                             "AP8Q+w===", "AP8Q+x==", "AP8Q-w==", "AP8Q +w==", " AP8Q+w==", "AP8Q+w==\n",
                             "AP8Q\n+w==", "AP8Q", "AP8Q+wAA", "AP8Q+wA=", "AP8Q+w=A", "AP8Q\xC3\xA9=="})
        EXPECT_FALSE(decodeBase64(text, bytes.data(), 4)) << text;
    EXPECT_FALSE(decodeBase64(std::string_view("AP8Q+w==\0", 9), bytes.data(), 4));
}

TEST(TrustEncoding, Base64IsReadTheSameWayWhetherSecretOrNot) {
    const auto both = [](const std::string &text, size_t size) {
        std::array<unsigned char, 8> open{};
        std::array<unsigned char, 8> secret{};
        const bool isBase64 = decodeBase64(text, open.data(), size);
        EXPECT_EQ(decodeSecretBase64(text, secret.data(), size), isBase64) << text;
        if (isBase64) {
            EXPECT_EQ(open, secret) << text;
        }
        return isBase64;
    };
    const std::array<unsigned char, 8> bytes{0xFB, 0xEF, 0xBE, 0x00, 0x10, 0x83, 0xFF, 0x7F};
    for (size_t size = 0; size < bytes.size(); ++size) {
        const std::string good = base64(bytes.data(), size);
        EXPECT_TRUE(both(good, size)) << good;
        EXPECT_FALSE(both(good, size + 1)) << good;
        if (size > 0) {
            EXPECT_FALSE(both(good, size - 1)) << good;
        }
        for (size_t at = 0; at < good.size(); ++at) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string text = good;
                text[at] = char(byte);
                both(text, size);
            }
        }
    }
}

TEST(TrustEncoding, ValuesHaveOneWrittenForm) {
    const std::pair<const char *, const char *> table[] = {
        {"org.example.App_2", "org.example.App_2"},
        {"org.my-app", "org.my-app"},
        {"org.my--app", "org.my-%2Dapp"},
        {"a---b", "a-%2D%2Db"},
        {"-", "-"},
        {"--", "-%2D"},
        {"My App", "My%20App"},
        {"caf\xC3\xA9", "caf%C3%A9"},
        {"1.0+2 (3)", "1.0%2B2%20%283%29"},
        {"100%", "100%25"},
        {"a:b/c\\\"\n", "a%3Ab%2Fc%5C%22%0A"},
        {"AZaz09._", "AZaz09._"},
        {"@[`{", "%40%5B%60%7B"}, // neighbours of the letters
    };
    for (const auto &[text, value] : table) {
        EXPECT_EQ(encodeValue(text), value);
        EXPECT_EQ(decodeValue(value), text);
    }
}

TEST(TrustEncoding, ValuesInOtherFormsAreNotRead) {
    for (const char *value : {"My App", "a--b", "a-%2d", "%41", "%2E", "a%2Db", "%", "%2", "%2G", "%G2",
                              "caf\xC3\xA9", "%C3", "%C3%28", "%ED%A0%80", "%C0%80", "%00", "a%", "a\n"})
        EXPECT_EQ(decodeValue(value), std::nullopt) << value;
}

TEST(TrustEncoding, NumbersHaveUpTo19DigitsAndNoLeadingZero) {
    EXPECT_EQ(parseNumber("0"), 0U);
    EXPECT_EQ(parseNumber("10"), 10U);
    EXPECT_EQ(parseNumber("9223372036854775807"), 9223372036854775807U);
    EXPECT_EQ(parseNumber("9223372036854775808"), 9223372036854775808U); // 2^63
    EXPECT_EQ(parseNumber("9999999999999999999"), 9999999999999999999U);
    for (const char *text :
         {"", "00", "01", "-1", "+1", " 1", "1 ", "1.0", "1e3", "0x1", "1,000", "10000000000000000000",
          "18446744073709551617", "\xD9\xA1", "1\n", "/", ":", "1:"})
        EXPECT_EQ(parseNumber(text), std::nullopt) << text;
}

TEST(TrustEncoding, DatesExist) {
    EXPECT_EQ(parseDate("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(parseDate("2026-11-22T12:34:56Z"), 1795350896);
    EXPECT_EQ(parseDate("2024-02-29T23:59:59Z"), 1709251199);
    EXPECT_EQ(parseDate("2100-02-28T00:00:00Z"), 4107456000);
    EXPECT_EQ(parseDate("9999-12-31T23:59:59Z"), 253402300799);
    EXPECT_EQ(parseDate("1969-12-31T23:59:59Z"), -1);
    for (const char *text : {"",
                             "never",
                             "2026-11-22",
                             "2026-11-22T12:34:56",
                             "2026-11-22T12:34:56z",
                             "2026-11-22 12:34:56Z",
                             "2026-11-22T12:34:56.0Z",
                             "2026-11-22T12:34:56+00:00",
                             "2023-02-29T00:00:00Z",
                             "2100-02-29T00:00:00Z",
                             "2026-13-01T00:00:00Z",
                             "2026-00-01T00:00:00Z",
                             "2026-01-00T00:00:00Z",
                             "2026-04-31T00:00:00Z",
                             "2026-01-01T24:00:00Z",
                             "2026-01-01T23:60:00Z",
                             "2026-01-01T23:59:60Z",
                             "12026-01-01T00:00:00Z",
                             "026-01-01T000:00:00Z",
                             "2026-1-01T00:00:000Z",
                             "+026-01-01T00:00:00Z",
                             "2026-01-01T00:00:00Z "})
        EXPECT_EQ(parseDate(text), std::nullopt) << text;
}

TEST(TrustEncoding, DatesAreWrittenAsTheyAreRead) {
    for (const int64_t time :
         {int64_t(0), int64_t(-1), int64_t(1709251199), int64_t(1795350896), int64_t(253402300799)})
        EXPECT_EQ(parseDate(formatDate(time)), time);
    EXPECT_EQ(formatDate(1795350896), "2026-11-22T12:34:56Z");
    EXPECT_EQ(formatDate(253402300800), ""); // the year 10000
    EXPECT_EQ(formatDate(-62167219201), ""); // the year -1
    EXPECT_EQ(formatDate(-62167219200), "0000-01-01T00:00:00Z");
}

TEST(TrustEncoding, WhatIsShownHasNoControlCharactersAndAnEnd) {
    EXPECT_EQ(shown("a b~"), "a b~");
    EXPECT_EQ(shown("\x1B[2J\x7F\xC3\xA9"), "%1B[2J%7F%C3%A9");
    EXPECT_EQ(shown(std::string(60, 'x')), std::string(60, 'x'));
    EXPECT_EQ(shown(std::string(61, 'x')), std::string(60, 'x') + "...");
}

TEST(TrustEncoding, DigestIsBlake2bAndDoesNotDependOnPieces) {
    EXPECT_EQ(hex(digestOf("abc")), "ba80a53f981c4d0d6a2797b69f12f6e94c212f14685ac4b74b12bb6fdbffa2d1"
                                    "7d87c5392aab792dc252d5de4533cc9518d38aa8dbf1925ab92386edd4009923");
    std::string all;
    DigestStream stream;
    for (size_t i = 0; i < 600; ++i) {
        const std::string piece(i, char('a' + i % 26));
        stream.add(piece.data(), piece.size());
        all += piece;
        if (i % 100 == 0) {
            EXPECT_EQ(stream.digest(), digestOf(all)) << i; // and it goes on
        }
    }
    EXPECT_EQ(stream.digest(), digestOf(all));
    EXPECT_EQ(stream.size(), all.size());
}

} // namespace
