// SPDX-License-Identifier: MIT
#include "tests/trust/trusttest.h"
#include "trust/signaturetext.h"

using namespace tx::trust;
using namespace tx::test;

namespace {

const std::string comment = "txupdate-archive:1 bundle:org.example.Host build:1043 size:4";

std::string goodText(size_t number = 0) { return signText(key(number), "data", comment); }

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin);
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

std::string withLine(size_t number, const std::string &line) {
    std::vector<std::string> lines = linesOf(goodText());
    lines[number] = line;
    std::string text;
    for (const std::string &one : lines)
        text += one + '\n';
    return text;
}

/// The signature line with another algorithm.
std::string withAlgorithm(const std::string &algorithm) {
    std::array<unsigned char, 74> bytes{};
    EXPECT_TRUE(decodeBase64(linesOf(goodText())[1], bytes.data(), bytes.size()));
    std::copy(algorithm.begin(), algorithm.end(), bytes.begin());
    return withLine(1, base64(bytes.data(), bytes.size()));
}

TEST(SignatureText, TakesApartWhatWasMade) {
    const auto text = SignatureText::parse(goodText());
    ASSERT_TRUE(text) << text.fault().what;
    EXPECT_EQ(text->number, key(0).publicKey().number);
    EXPECT_EQ(text->comment, comment);
    EXPECT_EQ(text->words().first(), "txupdate-archive:1");
    EXPECT_EQ(*text->words().value("build"), "1043");
    EXPECT_EQ(text->words().value("txupdate-archive"), std::nullopt);
    EXPECT_TRUE(text->verifyComment(key(0).publicKey()));
    EXPECT_TRUE(text->verify(digestOf("data"), key(0).publicKey()));
    EXPECT_FALSE(text->verify(digestOf("Data"), key(0).publicKey()));
    EXPECT_FALSE(text->verifyComment(key(1).publicKey()));
    EXPECT_FALSE(text->verify(digestOf("data"), key(1).publicKey()));
}

TEST(SignatureText, OtherFormsAreRefusedWithWhatWasExpected) {
    const std::string good = goodText();
    const std::vector<std::string> lines = linesOf(good);
    struct {
        const char *what;
        std::string text;
        const char *part;
    } const table[] = {
        {"empty", "", "four lines were expected in a signature, each ended by a line feed; it ends before"},
        {"without the last line feed", good.substr(0, good.size() - 1), "it ends before"},
        {"a line more", good + "\n", "there are more"},
        {"twice", good + good, "there are more"},
        {"CRLF", withLine(0, "untrusted comment: txupdate\r"), "not \"untrusted comment: txupdate%0D\""},
        {"another comment", withLine(0, "untrusted comment: signature from minisign secret key"),
         "Sign with \"minisign -c txupdate\" or with txupdate"},
        {"nothing behind the comment's colon", withLine(0, "untrusted comment:"), "minisign -c txupdate"},
        {"two blanks", withLine(0, "untrusted comment:  txupdate"), "minisign -c txupdate"},
        {"upper case", withLine(0, "Untrusted comment: txupdate"), "minisign -c txupdate"},
        {"JSON in the comment", withLine(0, "untrusted comment: x\"}],\"beta\":[{"), "minisign -c txupdate"},
        {"end of an XML comment", withLine(0, "untrusted comment: -->"), "minisign -c txupdate"},
        {"signature cut", withLine(1, lines[1].substr(4)), "the Base64 of 74 bytes was expected"},
        {"signature too long", withLine(1, lines[1] + "AAAA"), "74 bytes"},
        {"signature empty", withLine(1, ""), "74 bytes"},
        {"blank in the signature", withLine(1, lines[1].substr(0, 8) + " " + lines[1].substr(8)), "74 bytes"},
        {"blank behind the signature", withLine(1, lines[1] + " "), "74 bytes"},
        {"signature's padding", withLine(1, lines[1].substr(0, lines[1].size() - 1)), "74 bytes"},
        {"legacy", withAlgorithm("Ed"),
         "minisign's legacy form, which is not accepted. Sign again without -l"},
        {"unknown kind", withAlgorithm("XX"), "unknown kind, \"XX\""},
        {"no trusted comment", withLine(2, "comment: " + comment), "must begin with \"trusted comment: \""},
        {"trusted comment without blank", withLine(2, "trusted comment:" + comment), "must begin with"},
        {"empty trusted comment", withLine(2, "trusted comment: "), "words of the form name:value"},
        {"comment's signature cut", withLine(3, lines[3].substr(4)), "the Base64 of 64 bytes was expected"},
        {"comment's signature too long", withLine(3, lines[1]), "64 bytes"},
        {"other order", lines[2] + "\n" + lines[3] + "\n" + lines[0] + "\n" + lines[1] + "\n",
         "minisign -c txupdate"},
    };
    for (const auto &row : table)
        expectFault(SignatureText::parse(row.text), FaultKind::Signature, row.part, row.what);
}

TEST(SignatureText, LastCharacterOfTheBase64HasOneForm) {
    // 74 bytes leave four unused bits in the last character, 64 bytes four as well.
    const std::vector<std::string> lines = linesOf(goodText());
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    int refused = 0;
    for (const size_t number : {1U, 3U}) {
        const size_t at = lines[number].find('=') - 1;
        for (const char other : alphabet) {
            std::string line = lines[number];
            if (line[at] == other || alphabet.find(line[at]) >> 2U != alphabet.find(other) >> 2U)
                continue;
            line[at] = other;
            EXPECT_FALSE(SignatureText::parse(withLine(number, line))) << line;
            ++refused;
        }
    }
    EXPECT_EQ(refused, 6); // three other ones each
}

TEST(TrustedComment, WordsHaveOneForm) {
    const std::string longWord(70, 'x');
    struct {
        std::string comment;
        const char *part;
    } const table[] = {
        {"", "words of the form name:value"},
        {" ", "words of the form"},
        {"a:1 ", "words of the form"},
        {" a:1", "words of the form"},
        {"a:1  b:2", "words of the form"},
        {"a", "\"a\" was found"},
        {"a:", "\"a:\" was found"},
        {":1", "\":1\" was found"},
        {"A:1", "\"A:1\" was found"},
        {"a1:1", "\"a1:1\" was found"},
        {"a_b:1", "\"a_b:1\" was found"},
        {"a:1 b", "\"b\" was found"},
        {"a:1 b:2 b:3", "the word \"b\" occurs twice"},
        {"a:1 b:2 a:1", "the word \"a\" occurs twice"},
        {"c:1 b:2 a:3 b:4", "the word \"b\" occurs twice"},
        {"a:1 " + longWord, "..."},
    };
    for (const auto &row : table)
        expectFault(Words::parse(row.comment), FaultKind::Signature, row.part, row.comment);
    const auto words = Words::parse("txupdate-feed:1 a-b:x:y --:/ ab:1 z:\xC3\xA9");
    ASSERT_TRUE(words) << words.fault().what;
    EXPECT_EQ(words->first(), "txupdate-feed:1");
    EXPECT_EQ(*words->value("a-b"), "x:y");
    EXPECT_EQ(*words->value("--"), "/");
    EXPECT_EQ(*words->value("z"), "\xC3\xA9");
    EXPECT_EQ(words->value("b"), std::nullopt);
    EXPECT_EQ(words->value("txupdate-feed"), std::nullopt);
    EXPECT_TRUE(Words::parse("ab:1 a:1")); // a name is not its beginning
    EXPECT_TRUE(Words::parse("a:1 ab:1"));
}

TEST(TrustedComment, SameWordsMayHaveAnotherOrder) {
    const auto parse = [](const char *text) { return *Words::parse(text); };
    EXPECT_TRUE(parse("t:1 a:1 b:2").isSame(parse("t:1 b:2 a:1")));
    for (const char *other : {"t:2 a:1 b:2", "t:1 a:1", "t:1 a:1 b:3", "t:1 a:1 b:2 c:3", "t:1 a:1 c:2"})
        EXPECT_FALSE(parse("t:1 a:1 b:2").isSame(parse(other))) << other;
    EXPECT_FALSE(parse("t:1 a:1").isSame(parse("a:1 t:1"))) << "the first word is the purpose";
}

TEST(SignatureTexts, AreSplitAtEveryFourthLine) {
    const std::string one = goodText(0);
    const std::string two = goodText(1);
    const auto both = splitTexts(one + two);
    ASSERT_TRUE(both) << both.fault().what;
    EXPECT_EQ(*both, (std::vector<std::string>{one, two}));
    EXPECT_EQ(*splitEscapedTexts(escapeLineFeeds(one + two)), *both);
    EXPECT_TRUE(splitTexts("")->empty());
    for (size_t length = 1; length < one.size(); ++length)
        EXPECT_FALSE(splitTexts(two + one.substr(0, length))) << length;
}

TEST(SignatureTexts, EscapedOnesHoldNoOtherEscapes) {
    const std::string text = escapeLineFeeds(goodText());
    for (const std::string &bad :
         {text + "\n", replaced(text, "\\n", "\n"), replaced(text, "\\n", "\\r\\n"),
          replaced(text, "\\n", "\\\\n"), replaced(text, "\\n", "\\u000a"), text + "\\"})
        expectFault(splitEscapedTexts(bad), FaultKind::Signature, "", bad);
    expectFault(splitEscapedTexts(text + "\\"), FaultKind::Signature, "a backslash in a signature");
}

TEST(SignatureTexts, AreBounded) {
    const std::string line(mostTextBytes / 4 - 1, 'x');
    const std::string most = line + '\n' + line + '\n' + line + '\n' + line + '\n';
    EXPECT_EQ(most.size(), mostTextBytes);
    EXPECT_TRUE(splitTexts(most));
    expectFault(splitTexts("x" + most), FaultKind::Signature, "at most 64 KiB of signatures were expected");
    expectFault(splitEscapedTexts(std::string(64 << 20, 'x')), FaultKind::Signature, "at most 64 KiB");
    expectFault(SignatureText::parse(std::string(64 << 20, 'x')), FaultKind::Signature, "it ends before");
    const PublicKeys keys = keysOf({keyText(key(0))});
    expectFault(usableTexts(viewsOf({most, goodText()}), archiveWord, keys, &PublicKeys::archiveKey),
                FaultKind::Signature, "at most 64 KiB of signatures");
}

class SeveralTexts : public testing::Test {
protected:
    const PublicKeys keys = keysOf({keyText(key(0)), keyText(key(1))});

    Outcome<std::vector<UsableText>> usable(const std::vector<std::string> &texts) const {
        return usableTexts(viewsOf(texts), archiveWord, keys, &PublicKeys::archiveKey);
    }
};

TEST_F(SeveralTexts, EachByAKnownKeyCounts) {
    const auto texts = usable({goodText(0), goodText(1)});
    ASSERT_TRUE(texts) << texts.fault().what;
    ASSERT_EQ(texts->size(), 2U);
    EXPECT_EQ((*texts)[1].key.number, key(1).publicKey().number);
    EXPECT_FALSE(verifyAll(*texts, digestOf("data"), "archive"));
    expectFault(verifyAll(*texts, digestOf("dat"), "archive"), FaultKind::Forged,
                "the archive is not the one that key " + keyNumberText(key(0).publicKey().number) +
                    " has signed");
}

TEST_F(SeveralTexts, UnknownKeysAndOtherFirstWordsAreSkipped) {
    const auto texts =
        usable({goodText(2), signText(key(1), "else", "txupdate-archive:2 all:new"),
                signText(key(0), "else", "timestamp:1795352470\tfile:f\thashed"), goodText(1)});
    ASSERT_TRUE(texts) << texts.fault().what;
    ASSERT_EQ(texts->size(), 1U);
    EXPECT_EQ(texts->front().key.number, key(1).publicKey().number);
}

TEST_F(SeveralTexts, OneMustBeLeft) {
    expectFault(usable({}), FaultKind::Unsigned, "there is no signature");
    expectFault(usable({goodText(2)}), FaultKind::Unsigned,
                "one is by key " + keyNumberText(key(2).publicKey().number) + ", \"txupdate-archive:1\"");
    expectFault(usable({signText(key(0), "data", "txupdate-feed:1 bundle:b feed:f serial:1 expires:never")}),
                FaultKind::Unsigned,
                "no signature with \"txupdate-archive:1\" is by one of the application's keys");
}

TEST_F(SeveralTexts, OneBadOneSpoilsAll) {
    expectFault(usable({goodText(0), "x"}), FaultKind::Signature, "four lines");
    expectFault(usable({goodText(0), replaced(goodText(1), "build:1043", "build:1044")}), FaultKind::Forged,
                "the trusted comment of the signature by key " + keyNumberText(key(1).publicKey().number) +
                    " was changed after it was signed");
    // The second one signs other bytes.
    const auto texts = usable({goodText(0), signText(key(1), "atad", comment)});
    ASSERT_TRUE(texts) << texts.fault().what;
    expectFault(verifyAll(*texts, digestOf("data"), "archive"), FaultKind::Forged,
                keyNumberText(key(1).publicKey().number));
    EXPECT_TRUE(verifyAll({}, digestOf("data"), "archive")); // none signs nothing
}

TEST_F(SeveralTexts, AllSayTheSame) {
    expectFault(usable({goodText(0), signText(key(1), "data", comment + " feed:beta")}), FaultKind::Mismatch,
                "all signatures must have the same words");
    EXPECT_TRUE(
        usable({goodText(0),
                signText(key(1), "data", "txupdate-archive:1 size:4 build:1043 bundle:org.example.Host")}));
}

TEST_F(SeveralTexts, EightAreTakenAndNineAreNot) {
    EXPECT_TRUE(usable(std::vector<std::string>(8, goodText())));
    expectFault(usable(std::vector<std::string>(9, goodText())), FaultKind::Signature,
                "at most 8 signatures were expected, these are 9");
    expectFault(usable(std::vector<std::string>(10000, goodText())), FaultKind::Signature, "these are 10000");
}

TEST_F(SeveralTexts, KeyNumberOfAnotherKeyDoesNotHelp) {
    // Signed by a stranger under the number of a known key.
    std::array<unsigned char, 74> bytes{};
    const std::string foreign = goodText(2);
    ASSERT_TRUE(decodeBase64(linesOf(foreign)[1], bytes.data(), bytes.size()));
    const KeyNumber &number = key(0).publicKey().number;
    std::copy(number.begin(), number.end(), bytes.begin() + 2);
    expectFault(usable({replaced(foreign, linesOf(foreign)[1], base64(bytes.data(), bytes.size()))}),
                FaultKind::Forged, "was changed");
}

TEST_F(SeveralTexts, CommentOfOneSignatureDoesNotFitAnother) {
    // Both are by the key; the comment's signature holds the other signature.
    const std::vector<std::string> mine = linesOf(goodText());
    const std::vector<std::string> other =
        linesOf(signText(key(0), "other", "txupdate-archive:1 bundle:b build:2 size:5"));
    expectFault(usable({mine[0] + "\n" + mine[1] + "\n" + other[2] + "\n" + other[3] + "\n"}),
                FaultKind::Forged, "was changed");
}

} // namespace
