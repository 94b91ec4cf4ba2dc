// SPDX-License-Identifier: MIT
#include "tests/trust/trusttest.h"
#include "trust/feedsigning.h"
#include "trust/freshness.h"

using namespace tx::trust;
using namespace tx::test;

namespace {

const WantedFeed wanted{"org.example.Host", "release"};
const std::string comment =
    "txupdate-feed:1 bundle:org.example.Host feed:release serial:1795350896 expires:2027-01-21T12:34:56Z";
const std::string jsonBody = "\n\"release\":[{\"type\":\"build\",\"build\":\"1043\"}]}\n";
const std::string xmlBody = "<rss><channel><item><title>1</title></item></channel></rss>\n";
const std::string declaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";

const std::string &bodyOf(FeedFormat format) { return format == FeedFormat::Json ? jsonBody : xmlBody; }

/// A document with these texts in its first line, whatever they hold.
std::string documentOf(FeedFormat format, const std::string &escapedTexts, const std::string &body) {
    return (format == FeedFormat::Json
                ? R"({"signature":[{"type":"signature","value":")" + escapedTexts + "\"}],\n"
                : declaration + "<!-- signature " + escapedTexts + " -->\n") +
           body;
}

std::string signedDocument(FeedFormat format, const std::string &body, const std::string &words = comment,
                           size_t number = 0) {
    return documentOf(format, escapeLineFeeds(signText(key(number), body, words)), body);
}

Outcome<VerifiedFeed> verify(std::string &document, const PublicKeys &keys, const WantedFeed &want = wanted) {
    const std::string before = document;
    auto feed = VerifiedFeed::verify(keys, {document.data(), document.size()}, want);
    if (!feed) {
        EXPECT_EQ(document, before); // left as it was
    }
    return feed;
}

Outcome<VerifiedFeed> verify(std::string document) {
    static const PublicKeys keys = keysOf({keyText(key(0)), keyText(key(1), "minisign-feed:")});
    return verify(document, keys);
}

class SignedFeed : public testing::TestWithParam<FeedFormat> {};
INSTANTIATE_TEST_SUITE_P(Json, SignedFeed, testing::Values(FeedFormat::Json));
INSTANTIATE_TEST_SUITE_P(Xml, SignedFeed, testing::Values(FeedFormat::Xml));

TEST_P(SignedFeed, ReaderIsGivenTheBeginningAndTheSignedBytes) {
    const PublicKeys keys = keysOf({keyText(key(0))});
    std::string document = signedDocument(GetParam(), bodyOf(GetParam()));
    const auto feed = verify(document, keys);
    ASSERT_TRUE(feed) << feed.fault().what;
    EXPECT_EQ(document.substr(feed->documentAt()),
              (GetParam() == FeedFormat::Json ? "{" : declaration) + bodyOf(GetParam()));
    EXPECT_EQ(feed->format(), GetParam());
    EXPECT_EQ(feed->claim(), (FeedClaim{"org.example.Host", "release", 1795350896, 1800534896}));
}

TEST_P(SignedFeed, OneBitFlippedAnywhereIsNoticed) {
    const std::string good = signedDocument(GetParam(), bodyOf(GetParam()));
    ASSERT_TRUE(verify(good));
    for (size_t at = 0; at < good.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string document = good;
            document[at] = char(document[at] ^ (1 << bit));
            EXPECT_FALSE(verify(document)) << at << " " << bit;
        }
    }
}

TEST_P(SignedFeed, TruncatedAndLongerOnesAreNotAccepted) {
    const std::string good = signedDocument(GetParam(), bodyOf(GetParam()));
    for (size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(verify(good.substr(0, length))) << length;
    for (const char *more : {" ", "\n", "x"})
        expectFault(verify(good + more), FaultKind::Forged, "the feed is not the one that key");
    EXPECT_TRUE(verify(signedDocument(GetParam(), ""))); // an empty body can be signed
}

TEST_P(SignedFeed, UnsignedOnesSayWhatToDo) {
    for (const std::string &document :
         {std::string(), bodyOf(GetParam()), "{" + jsonBody, declaration + xmlBody})
        expectFault(verify(document), FaultKind::Unsigned, "Sign it with \"txupdate feed sign\"", document);
}

TEST_P(SignedFeed, OtherKeysAndOtherKindsOfSignatureDoNotCount) {
    const FeedFormat format = GetParam();
    const std::string body = bodyOf(format);
    expectFault(verify(signedDocument(format, body, comment, 2)), FaultKind::Unsigned,
                "by one of the application's keys");
    EXPECT_TRUE(verify(signedDocument(format, body, comment, 1))); // a key for feeds
    // An archive's signature over the same bytes.
    expectFault(verify(signedDocument(format, body,
                                      "txupdate-archive:1 bundle:org.example.Host build:1 size:" +
                                          std::to_string(body.size()))),
                FaultKind::Unsigned, "no signature with \"txupdate-feed:1\"");
    std::string document = signedDocument(format, body);
    const PublicKeys plain = keysOf({plainKeyText(key(0))});
    expectFault(verify(document, plain), FaultKind::Unsigned, "no signature");
}

TEST_P(SignedFeed, OtherApplicationsAndNamesAreRefused) {
    const FeedFormat format = GetParam();
    const PublicKeys keys = keysOf({keyText(key(0))});
    std::string document = signedDocument(format, bodyOf(format));
    expectFault(verify(document, keys, {"org.example.Hos", "release"}), FaultKind::Mismatch,
                "signed for the application \"org.example.Host\", expected was \"org.example.Hos\"");
    expectFault(verify(document, keys, {"org.example.Host", "beta"}), FaultKind::Mismatch,
                "signed for the name \"release\", expected was \"beta\"");
    for (const char *identifier : {"org.my--app", "My App", "caf\xC3\xA9"}) {
        const FeedClaim claim{identifier, identifier, 1, {}};
        std::string other = signedDocument(format, bodyOf(format), feedComment(claim));
        const auto feed = verify(other, keys, {identifier, identifier});
        ASSERT_TRUE(feed) << feed.fault().what;
        EXPECT_EQ(feed->claim(), claim);
    }
}

TEST_P(SignedFeed, MalformedWordsAreRefusedAlthoughTheyAreSigned) {
    const std::string begin = "txupdate-feed:1 bundle:org.example.Host feed:release ";
    const std::pair<std::string, const char *> table[] = {
        {"txupdate-feed:1 feed:release serial:1 expires:never", "behind \"bundle:\""},
        {"txupdate-feed:1 bundle:org.example.Host serial:1 expires:never", "behind \"feed:\""},
        {"txupdate-feed:1 bundle:%41 feed:release serial:1 expires:never", "behind \"bundle:\""},
        {begin + "expires:never", "A number of seconds was expected behind \"serial:\""},
        {begin + "serial:01 expires:never", "\"01\" was found"},
        {begin + "serial:-1 expires:never", "\"-1\" was found"},
        {begin + "serial:10000000000000000000 expires:never", "behind \"serial:\""},
        {begin + "serial:1", "behind \"expires:\""},
        {begin + "serial:1 expires:Never", "\"Never\" was found"},
        {begin + "serial:1 expires:2027-02-29T00:00:00Z", "behind \"expires:\""},
        {begin + "serial:1 expires:2027-01-21", "of the form YYYY-MM-DDTHH:MM:SSZ or \"never\""},
        {begin + "serial:1795350896 expires:9999-12-31T23:59:59Z", "at most 400 days after the serial"},
        {begin + "serial:1 serial:1 expires:never", "occurs twice"},
    };
    for (const auto &[words, part] : table)
        expectFault(verify(signedDocument(GetParam(), bodyOf(GetParam()), words)), FaultKind::Signature, part,
                    words);
    EXPECT_TRUE(verify(signedDocument(GetParam(), bodyOf(GetParam()), comment + " new:word other:1")));
}

TEST_P(SignedFeed, ExpiryMayBe400DaysAfterTheSerialAndNoMore) {
    const uint64_t serial = 1795350896;
    for (const int64_t more : {int64_t(0), int64_t(1)}) {
        const FeedClaim claim{"org.example.Host", "release", serial,
                              int64_t(serial) + longestValidity + more};
        EXPECT_EQ(bool(verify(signedDocument(GetParam(), bodyOf(GetParam()), feedComment(claim)))),
                  more == 0);
    }
    // A date before 1970 is past, and one with the largest serial is not too far ahead.
    EXPECT_TRUE(verify(
        signedDocument(GetParam(), bodyOf(GetParam()), feedComment({"org.example.Host", "release", 5, -1}))));
    EXPECT_TRUE(verify(
        signedDocument(GetParam(), bodyOf(GetParam()),
                       feedComment({"org.example.Host", "release", 9999999999999999999U, 253402300799}))));
}

TEST_P(SignedFeed, SeveralSignaturesAllCount) {
    const FeedFormat format = GetParam();
    const std::string body = bodyOf(format);
    const auto with = [&](const std::vector<std::string> &texts) {
        std::string all;
        for (const std::string &text : texts)
            all += escapeLineFeeds(text);
        return verify(documentOf(format, all, body));
    };
    const std::string one = signText(key(0), body, comment);
    const std::string two = signText(key(1), body, comment);
    EXPECT_TRUE(with({one, two}));
    EXPECT_TRUE(with({signText(key(2), body, comment), two}));
    expectFault(with({one, signText(key(1), body + " ", comment)}), FaultKind::Forged,
                "the feed is not the one");
    expectFault(with({one, replaced(two, "serial:17", "serial:18")}), FaultKind::Forged, "was changed");
    expectFault(with({one, signText(key(1), body, replaced(comment, "896", "897"))}), FaultKind::Mismatch,
                "same words");
    expectFault(with({}), FaultKind::Unsigned, "there is no signature");
    expectFault(with(std::vector<std::string>(9, one)), FaultKind::Signature, "at most 8");
    expectFault(with(std::vector<std::string>(10000, one)), FaultKind::FeedLine, "within 64 KiB");
}

TEST_P(SignedFeed, FirstLineHasExactlyOneForm) {
    const FeedFormat format = GetParam();
    const std::string body = bodyOf(format);
    const std::string text = escapeLineFeeds(signText(key(0), body, comment));
    const std::string json = documentOf(FeedFormat::Json, text, body);
    const std::string xml = documentOf(FeedFormat::Xml, text, body);
    const std::string &good = format == FeedFormat::Json ? json : xml;
    std::vector<std::string> bad = {
        "\xEF\xBB\xBF" + good, // a byte order mark
        " " + good,            // another blank
        "\n" + good,
        replaced(good, "\n", "\r\n"), // CRLF
        replaced(good, "\n", " \n"),
        replaced(good, text, text + " "),
        replaced(good, text, " " + text),
        replaced(good, "untrusted", "\\nuntrusted"),
        replaced(good, text, replaced(text, "\\n", "\\u000a")),
        replaced(good, text, replaced(text, "\\n", "\\\\n")),
    };
    if (format == FeedFormat::Json) {
        for (const auto &[from, to] : std::vector<std::pair<std::string, std::string>>{
                 {R"({"signature":[{"type":"signature",)", R"({ "signature":[{"type":"signature",)"},
                 {R"({"type":"signature","value":)", R"({"value":"","type":"signature","value":)"},
                 {R"("type":"signature","value":)", R"("type": "signature","value":)"},
                 {"\"}],\n", "\"}], \n"},
                 {"\"}],\n", "\"},{\"type\":\"signature\",\"value\":\"" + text + "\"}],\n"}, // a second one
                 {"\"}],\n", "\"}],\"signature\":[],\n"},                                    // a second track
                 {"\"}],\n", "\"}]\n,"},
                 {"\"}],\n", "\"}],"}})
            bad.push_back(replaced(json, from, to));
    } else {
        for (const auto &[from, to] : std::vector<std::pair<std::string, std::string>>{
                 {"UTF-8", "utf-8"}, // another encoding or declaration
                 {"UTF-8", "ISO-8859-1"},
                 {"1.0", "1.1"},
                 {"\"1.0\"", "'1.0'"},
                 {" encoding=\"UTF-8\"", ""},
                 {"?><!--", "?>\n<!--"},
                 {"?><!--", " ?><!--"},
                 {"<!-- signature", "<!--signature"},
                 {"<!-- signature", "<!-- Signature"},
                 {" -->\n", "-->\n"},
                 {" -->\n", " --> \n"},
                 {" -->\n", " --><!-- x -->\n"}})
            bad.push_back(replaced(xml, from, to));
    }
    ASSERT_TRUE(verify(good));
    for (const std::string &document : bad)
        EXPECT_FALSE(verify(document)) << document;
}

TEST_P(SignedFeed, TextThatClosesItsPlaceAddsNothing) {
    const FeedFormat format = GetParam();
    const std::string body = bodyOf(format);
    const std::string text = escapeLineFeeds(signText(key(0), body, comment));
    for (const std::string &evil :
         {std::string(R"(x"}],"beta":[{"type":"build","build":"9"}],"y":[{"z":")"),
          std::string("--><item><title>9</title></item><!-- "), std::string("-->"), std::string("--"),
          std::string("<"), std::string("&"), std::string("\""), std::string("\\"), std::string("\\\""),
          std::string("caf\xC3\xA9"), std::string("\t"), std::string("\x01"), std::string(1, '\0')}) {
        for (const std::string &changed : {replaced(text, "txupdate", evil),
                                           replaced(text, "txupdate-feed", evil), text + evil, evil + text})
            EXPECT_FALSE(verify(documentOf(format, changed, body))) << changed;
        // Not even when it is signed.
        EXPECT_FALSE(verify(signedDocument(format, body, comment + " x:" + evil))) << evil;
        expectFault(makeFirstLine(format, {signText(key(0), body, comment + " x:" + evil)}), FaultKind::Input,
                    "must not hold", evil);
    }
}

TEST_P(SignedFeed, LineIsAtMost64KiBWithItsLineFeed) {
    const FeedFormat format = GetParam();
    const size_t around = documentOf(format, "", "").size();
    const std::string most(mostLineBytes - around, 'x');
    EXPECT_EQ(documentOf(format, most, "").size(), mostLineBytes);
    expectFault(parseFirstLine(documentOf(format, most, "")), FaultKind::Signature, "four lines");
    expectFault(parseFirstLine(documentOf(format, most + "x", "")), FaultKind::FeedLine, "within 64 KiB");
    EXPECT_TRUE(findUnreadLine(documentOf(format, most, "")));
    EXPECT_FALSE(findUnreadLine(documentOf(format, most + "x", "")));
    // The longest that can be made.
    const std::string text = signText(key(0), "", "a:" + std::string(7400, 'x'));
    EXPECT_TRUE(makeFirstLine(format, std::vector<std::string>(8, text)));
    EXPECT_TRUE(parseFirstLine(*makeFirstLine(format, std::vector<std::string>(8, text))));
    expectFault(makeFirstLine(format, std::vector<std::string>(9, text)), FaultKind::Input,
                "longer than 64 KiB");
    expectFault(verify(documentOf(format, std::string(64 << 20, 'x'), "")), FaultKind::FeedLine,
                "within 64 KiB");
}

TEST_P(SignedFeed, BodyThatReadersCouldTakeForSomethingElseIsRefusedAlthoughItIsSigned) {
    const FeedFormat format = GetParam();
    const std::string body = bodyOf(format);
    std::string wide; // UTF-16 without a mark
    for (const char c : body) {
        wide += '\0';
        wide += c;
    }
    std::vector<std::string> bad = {"\xEF\xBB\xBF" + body,       wide,
                                    body + std::string(1, '\0'), body + "\xFF",
                                    "\xFF\xFE" + body,           body + "caf\xE9",
                                    body + "\xED\xA0\x80",       body + "\xC0\x80",
                                    body + "\xF4\x90\x80\x80",   body + "\xC3"};
    if (format == FeedFormat::Xml) {
        for (const char *own : {"<?xml version=\"1.0\"?>", " \t\r\n<?xml\tencoding=\"x\"?>", "<?xml?>",
                                "<?xml version=\"1.0\" encoding=\"UTF-7\"?>", "<?xml\n?>"})
            bad.push_back(own + body);
    }
    for (const std::string &one : bad)
        expectFault(verify(signedDocument(format, one)), FaultKind::FeedLine, "must be UTF-8 without", one);
    EXPECT_TRUE(verify(signedDocument(format, body + "caf\xC3\xA9 \xF0\x9F\x98\x80")));
    EXPECT_TRUE(verify(signedDocument(format, "<?xml-stylesheet href=\"x\"?>" + body)));
    EXPECT_TRUE(verify(signedDocument(format, "<?xm"))); // shorter than the word
}

TEST_P(SignedFeed, LineIsDroppedUnreadWhereNobodyVerifies) {
    const FeedFormat format = GetParam();
    const std::string beginning = format == FeedFormat::Json ? "{" : declaration;
    for (const std::string &text :
         {escapeLineFeeds(signText(key(2), "else", comment)), std::string("nonsense"), std::string(),
          std::string(R"(x"}],"beta":[{"type":"build","build":"9"}],"y":[{"z":")"),
          std::string("--><item/><!-- ")}) {
        std::string document = documentOf(format, text, bodyOf(format));
        const auto line = findUnreadLine(document);
        ASSERT_TRUE(line) << text;
        EXPECT_EQ(line->format, format);
        EXPECT_EQ(document.substr(line->bodyAt), bodyOf(format));
        const size_t at = putBeginningBeforeBody(document.data(), line->format, line->bodyAt);
        EXPECT_EQ(document.substr(at), beginning + bodyOf(format));
    }
    for (const std::string &document :
         {std::string(), beginning + bodyOf(format), documentOf(format, "x", "").substr(1),
          documentOf(format, "x\n", ""), replaced(documentOf(format, "x", ""), "\n", "\r\n"),
          documentOf(format, "x", "").substr(0, documentOf(format, "x", "").size() - 1)})
        EXPECT_FALSE(findUnreadLine(document)) << document;
}

// Freshness.

constexpr int64_t now = 1795350896;

FeedClaim claimAt(uint64_t serial, std::optional<int64_t> expires = {}) {
    return {"org.example.Host", "release", serial, expires};
}

TEST(Freshness, NowIsTheLaterOfClockAndBuildDate) {
    EXPECT_EQ(trustedNow(now, {}), now);
    EXPECT_EQ(trustedNow(now, now - 1), now);
    EXPECT_EQ(trustedNow(now, now + 1), now + 1);
    EXPECT_EQ(trustedNow(0, now), now); // 1970
    EXPECT_EQ(trustedNow(-5, {}), -5);
}

TEST(Freshness, SerialsNeverGoBack) {
    const auto judge = [](uint64_t serial, std::optional<uint64_t> stored) {
        return judgeFreshness(claimAt(serial), stored, now).freshness;
    };
    EXPECT_EQ(judge(1, {}), Freshness::Fresh); // the first one
    EXPECT_EQ(judge(1000, 1000), Freshness::Fresh);
    EXPECT_EQ(judge(1001, 1000), Freshness::Fresh);
    EXPECT_EQ(judge(999, 1000), Freshness::Older);
    EXPECT_EQ(judge(0, 1), Freshness::Older);
}

TEST(Freshness, SerialMayBeADayAheadOfTheClock) {
    const auto judge = [](uint64_t serial, std::optional<uint64_t> stored = {}) {
        return judgeFreshness(claimAt(serial), stored, now).freshness;
    };
    EXPECT_EQ(judge(now + aDay), Freshness::Fresh);
    EXPECT_EQ(judge(now + aDay + 1), Freshness::AheadOfClock);
    EXPECT_EQ(judge(uint64_t(1) << 63U), Freshness::AheadOfClock);
    EXPECT_EQ(judge(9999999999999999999U), Freshness::AheadOfClock);
    EXPECT_EQ(judge(now + aDay + 1, now + 2 * aDay), Freshness::AheadOfClock);
    // 1970 without and with a date of the application.
    EXPECT_EQ(judgeFreshness(claimAt(now), {}, trustedNow(0, {})).freshness, Freshness::AheadOfClock);
    EXPECT_EQ(judgeFreshness(claimAt(now), {}, trustedNow(0, now - aDay)).freshness, Freshness::Fresh);
    EXPECT_EQ(judgeFreshness(claimAt(aDay), {}, -1000).freshness, Freshness::Fresh); // as at 0
    EXPECT_EQ(judgeFreshness(claimAt(aDay + 1), {}, -1000).freshness, Freshness::AheadOfClock);
}

TEST(Freshness, StoredSerialOfAWrongClockDoesNotCount) {
    const auto verdict = judgeFreshness(claimAt(now), now + aDay + 1, now);
    EXPECT_EQ(verdict.freshness, Freshness::Fresh);
    EXPECT_TRUE(verdict.ignoredStored);
    const auto near = judgeFreshness(claimAt(now), now + aDay, now);
    EXPECT_EQ(near.freshness, Freshness::Older);
    EXPECT_FALSE(near.ignoredStored);
    EXPECT_FALSE(judgeFreshness(claimAt(now), {}, now).ignoredStored);
}

TEST(Freshness, FourHundredFeedsEachADayAheadDoNotMoveAHostFurther) {
    std::optional<uint64_t> stored;
    int accepted = 0;
    for (int day = 1; day <= 400; ++day) {
        const FeedClaim claim = claimAt(uint64_t(now + day * aDay));
        if (judgeFreshness(claim, stored, now).freshness != Freshness::Fresh)
            continue;
        stored = claim.serial;
        ++accepted;
    }
    EXPECT_EQ(accepted, 1);
    EXPECT_EQ(stored, uint64_t(now + aDay));
    // A day later the publisher's own feed counts again.
    EXPECT_EQ(judgeFreshness(claimAt(uint64_t(now + aDay + 1)), stored, now + aDay + 1).freshness,
              Freshness::Fresh);
}

TEST(Freshness, LastSecondOfTheValidityCounts) {
    EXPECT_EQ(judgeFreshness(claimAt(1, now), {}, now).freshness, Freshness::Fresh);
    EXPECT_EQ(judgeFreshness(claimAt(1, now - 1), {}, now).freshness, Freshness::Expired);
    EXPECT_EQ(judgeFreshness(claimAt(1, -1), {}, now).freshness, Freshness::Expired);
    EXPECT_EQ(judgeFreshness(claimAt(1), {}, now).freshness, Freshness::Fresh); // never
    const int64_t year2100 = 4102444800;
    EXPECT_EQ(judgeFreshness(claimAt(now, now + 60 * aDay), {}, year2100).freshness, Freshness::Expired);
    // An old one is old first, and one from the future has the clock's words.
    EXPECT_EQ(judgeFreshness(claimAt(1, now - 1), 2, now).freshness, Freshness::Older);
    EXPECT_EQ(judgeFreshness(claimAt(now + 2 * aDay, now - 1), {}, now).freshness, Freshness::AheadOfClock);
}

TEST(FeedTrouble, IsToldAfterAFortnightAndOnceAFortnight) {
    FeedTrouble stored;
    const auto check = [&stored](int64_t time, bool isUsable = false) {
        const TroubleVerdict verdict = noteFeed(stored, isUsable, time);
        stored = verdict.stored;
        return verdict.tells;
    };
    EXPECT_FALSE(check(now));
    EXPECT_FALSE(check(now + 14 * aDay - 1));
    EXPECT_TRUE(check(now + 14 * aDay));
    EXPECT_FALSE(check(now + 14 * aDay + 1));
    EXPECT_FALSE(check(now + 28 * aDay - 1));
    EXPECT_TRUE(check(now + 28 * aDay));
    // One good feed ends it.
    EXPECT_FALSE(check(now + 29 * aDay, true));
    EXPECT_EQ(stored, FeedTrouble());
    EXPECT_FALSE(check(now + 60 * aDay));
    EXPECT_FALSE(check(now + 74 * aDay - 1));
    EXPECT_TRUE(check(now + 74 * aDay));
}

TEST(FeedTrouble, TimesOfAClockThatWasSetBackAreForgotten) {
    const TroubleVerdict begun = noteFeed({now + 1, {}}, false, now);
    EXPECT_EQ(begun.stored.since, now);
    EXPECT_FALSE(begun.tells);
    const TroubleVerdict told = noteFeed({now - 20 * aDay, now + 1}, false, now);
    EXPECT_TRUE(told.tells);
    EXPECT_EQ(told.stored.told, now);
    EXPECT_FALSE(noteFeed({now - 20 * aDay, now}, false, now).tells);
}

// Signing.

FeedSigning signing(int64_t time = now) { return {"org.example.Host", "release", time, 60}; }

Outcome<SignedFeedDocument> sign(const std::string &document, FeedFormat format,
                                 const FeedSigning &how = signing(),
                                 const std::vector<size_t> &numbers = {0}) {
    std::vector<const SecretKey *> keys;
    for (const size_t number : numbers)
        keys.push_back(&key(number));
    return signFeed(document, format, keys, how);
}

TEST(FeedSigning, ReplacesTheBeginningOfTheDocument) {
    const std::pair<std::string, std::string> json[] = {
        {"{" + jsonBody, jsonBody},  {"\xEF\xBB\xBF {" + jsonBody, jsonBody},
        {"{}", "\"release\":[]}"},   {" { \n}\n", "\"release\":[] \n}\n"},
        {"{\"a\":[]}", "\"a\":[]}"},
    };
    for (const auto &[document, body] : json) {
        const auto result = sign(document, FeedFormat::Json);
        ASSERT_TRUE(result) << document << result.fault().what;
        EXPECT_EQ(result->document, signedDocument(FeedFormat::Json, body)) << document;
        EXPECT_EQ(result->previousSerial, std::nullopt);
    }
    const std::pair<std::string, std::string> xml[] = {
        {xmlBody, xmlBody},
        {declaration + "\n" + xmlBody, xmlBody},
        {"\xEF\xBB\xBF<?xml version='1.0'?>" + xmlBody, xmlBody},
        {"<?xml-stylesheet href=\"x\"?>" + xmlBody, "<?xml-stylesheet href=\"x\"?>" + xmlBody},
    };
    for (const auto &[document, body] : xml) {
        const auto result = sign(document, FeedFormat::Xml);
        ASSERT_TRUE(result) << document << result.fault().what;
        EXPECT_EQ(result->document, signedDocument(FeedFormat::Xml, body)) << document;
    }
}

TEST(FeedSigning, ReplacesAnEarlierLineAndGoesOnFromItsSerial) {
    for (const FeedFormat format : {FeedFormat::Json, FeedFormat::Xml}) {
        auto result = sign(signedDocument(format, bodyOf(format)), format);
        ASSERT_TRUE(result) << result.fault().what;
        EXPECT_EQ(result->previousSerial, 1795350896U);
        EXPECT_EQ(result->claim.serial, uint64_t(now) + 1);
        EXPECT_EQ(result->claim.expires, now + 1 + 60 * aDay);
        const auto again = sign(result->document, format, signing(now + 100), {0, 1});
        ASSERT_TRUE(again) << again.fault().what;
        EXPECT_EQ(again->claim.serial, uint64_t(now) + 100);
        const auto line = parseFirstLine(again->document);
        ASSERT_TRUE(line && *line);
        EXPECT_EQ((*line)->texts.size(), 2U);
        EXPECT_EQ(again->document.substr((*line)->bodyAt), bodyOf(format));
    }
}

TEST(FeedSigning, EarlierSerialMayBeADayAhead) {
    const auto after = [](uint64_t serial) {
        return sign(signedDocument(FeedFormat::Json, jsonBody, feedComment(claimAt(serial))),
                    FeedFormat::Json);
    };
    const auto ahead = after(now + aDay);
    ASSERT_TRUE(ahead) << ahead.fault().what;
    EXPECT_EQ(ahead->claim.serial, uint64_t(now + aDay + 1));
    expectFault(after(now + aDay + 1), FaultKind::Input, "more than a day ahead of this machine's clock");
    expectFault(after(9999999999999999999U), FaultKind::Input, "more than a day ahead");
}

TEST(FeedSigning, LargestOfSeveralEarlierSerialsCounts) {
    const std::string texts = escapeLineFeeds(signText(key(0), jsonBody, feedComment(claimAt(now + 50))) +
                                              signText(key(1), jsonBody, feedComment(claimAt(now + 70))) +
                                              signText(key(2), jsonBody, feedComment(claimAt(now + 60))) +
                                              signText(key(2), jsonBody, "txupdate-feed:2 serial:5"));
    const auto result = sign(documentOf(FeedFormat::Json, texts, jsonBody), FeedFormat::Json);
    ASSERT_TRUE(result) << result.fault().what;
    EXPECT_EQ(result->claim.serial, uint64_t(now) + 71);
}

TEST(FeedSigning, WhatCannotBeSignedSaysWhy) {
    const std::string json = "{" + jsonBody;
    const auto with = [](auto change) {
        FeedSigning how = signing();
        change(how);
        return how;
    };
    expectFault(sign("", FeedFormat::Json), FaultKind::Input,
                "a JSON feed was expected, an object in braces");
    expectFault(sign("[]", FeedFormat::Json), FaultKind::Input, "an object in braces");
    expectFault(sign("{\"a\":\"\xFF\"}", FeedFormat::Json), FaultKind::Input, "must be UTF-8 without");
    expectFault(sign(signedDocument(FeedFormat::Xml, xmlBody), FeedFormat::Json), FaultKind::Input,
                "an object in braces");
    expectFault(sign("<?xml version='1.0'><rss/>", FeedFormat::Xml), FaultKind::Input,
                "declaration of the feed has no end");
    expectFault(sign("<?xml version='1.0'?><?xml version='1.0'?><rss/>", FeedFormat::Xml), FaultKind::Input,
                "a declaration of its own");
    expectFault(sign(json, FeedFormat::Json, signing(), {}), FaultKind::Input, "1 to 8 keys are needed");
    expectFault(sign(json, FeedFormat::Json, signing(), std::vector<size_t>(9, 0)), FaultKind::Input,
                "1 to 8 keys");
    expectFault(sign(json, FeedFormat::Json, signing(), {0, 0}), FaultKind::Input,
                "has the same bytes as key 1");
    expectFault(sign(json, FeedFormat::Json, with([](FeedSigning &how) { how.bundle.clear(); })),
                FaultKind::Input, "identifier");
    expectFault(sign(json, FeedFormat::Json, with([](FeedSigning &how) { how.feed.clear(); })),
                FaultKind::Input, "name");
    for (const int64_t days : {-1, 0, 401})
        expectFault(sign(json, FeedFormat::Json, with([days](FeedSigning &how) { how.validDays = days; })),
                    FaultKind::Input, "1 to 400 days", std::to_string(days));
    for (const int64_t days : {1, 400})
        EXPECT_TRUE(sign(json, FeedFormat::Json, with([days](FeedSigning &how) { how.validDays = days; })));
    const auto never = sign(json, FeedFormat::Json, with([](FeedSigning &how) { how.validDays.reset(); }));
    ASSERT_TRUE(never) << never.fault().what;
    EXPECT_EQ(never->claim.expires, std::nullopt);
    EXPECT_EQ(feedComment(never->claim),
              "txupdate-feed:1 bundle:org.example.Host feed:release serial:1795350896 expires:never");
}

TEST(FeedSigning, DamagedEarlierLineIsNotReplacedSilently) {
    const std::string good = signedDocument(FeedFormat::Json, jsonBody);
    for (const std::string &bad :
         {replaced(good, "\"}],\n", "\"}], \n"), replaced(good, "serial:17", "serial:017"),
          replaced(good, "untrusted", "Untrusted"), replaced(good, "expires:2027", "expires:9027")})
        expectFault(sign(bad, FeedFormat::Json), sign(bad, FeedFormat::Json).fault().kind,
                    "Remove it, and sign again", bad);
}

} // namespace
