// SPDX-License-Identifier: MIT
#include "posix/plainpropertylist.h"

#include "base/propertylist.h"
#include "tests/support/agreement.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"

using namespace Qt::StringLiterals;

namespace {

std::optional<tx::plain::Value> readPlain(const QByteArray &document) {
    return tx::plain::readPropertyList(
        std::string_view(document.data(), static_cast<size_t>(document.size())));
}

QByteArray list(const QByteArray &content) { return "<plist version=\"1.0\">" + content + "</plist>"; }

/// A document that both readers read, or both refuse.
void expectAgreement(const QByteArray &document) {
    const auto plain = readPlain(document);
    const auto framework = tx::readPropertyList(document);
    EXPECT_EQ(bool(plain), bool(framework)) << document.left(2000).toStdString();
    if (plain && framework) {
        EXPECT_TRUE(tx::test::isSame(*plain, *framework)) << document.left(2000).toStdString();
    }
}

TEST(PlainPropertyList, AgreesWithTheFrameworkOnTheCorpus) {
    const QDir corpus(tx::test::sourcesFolder() + u"/fuzz/corpus/property_list"_s);
    int count = 0;
    for (const QString &name : corpus.entryList(QDir::Files)) {
        SCOPED_TRACE(name.toStdString());
        expectAgreement(tx::test::readFile(corpus.filePath(name)));
        ++count;
    }
    EXPECT_GE(count, 8);
}

TEST(PlainPropertyList, AgreesWithTheFrameworkOnWhatItWrites) {
    const QVariantMap everything{
        {u"bool"_s, true},
        {u"no"_s, false},
        {u"double"_s, 3600.25},
        {u"integer"_s, qint64(1234567890123)},
        {u"negative"_s, qint64(-5)},
        {u"string"_s, u"\u00FC <&> \" ' \U0001F600\n\t"_s},
        {u"long"_s, QString(5000, u'x')},
        {u"empty"_s, u""_s},
        {u"date"_s, QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC)},
        {u"old"_s, QDateTime(QDate(1999, 1, 2), QTime(3, 4, 5), Qt::UTC)},
        {u"data"_s, QByteArray("\x00\x01\xff\x7f", 4)},
        {u"nothing"_s, QByteArray()},
        {u"list"_s, QVariantList{u"a"_s, QVariantMap{{u"k"_s, u"v"_s}}, QVariantList{}}}};
    for (const auto format : {tx::PropertyListFormat::Xml, tx::PropertyListFormat::Binary}) {
        const QByteArray document = tx::writePropertyList(everything, format);
        ASSERT_TRUE(readPlain(document)) << document.constData();
        expectAgreement(document);
    }
}

TEST(PlainPropertyList, AgreesWithTheFrameworkOnDocumentsByHand) {
    const QByteArray documents[] = {
        list("<string>a&lt;b&#228;&#x1F600;&amp;&quot;&apos;&gt;</string>"),
        list("<string>one<![CDATA[<two>&amp;]]>three</string>"),
        list("<string>  kept \n </string>"),
        list("<string/>"),
        list("<string></string>"),
        list("<array><true/><false/></array>"),
        list("<array/>"),
        list("<dict/>"),
        list("<dict>\n  <!-- a comment --><key>a</key>\n<integer>12</integer></dict>"),
        list("<array><integer>9223372036854775807</integer><integer>-1</integer><integer>0x1F</integer></"
             "array>"),
        list("<array><real>1.5</real><real>-2e10</real><real>3</real></array>"),
        list("<data>\n AAEC\n /w==\n</data>"),
        list("<date>2026-01-31T23:59:59Z</date>"),
        // Beyond the seconds that 32 bits hold.
        list("<date>2038-01-19T03:14:08Z</date>"),
        list("<date>2068-02-29T23:59:59Z</date>"),
        list("<date>1950-03-01T00:00:00Z</date>"),
        "<?xml version='1.0' encoding='utf-8'?>\n<!-- first -->\n<!DOCTYPE plist PUBLIC \"a\" \"b\">\n" +
            list("<true/>") + "\n<!-- last -->\n",
        "",
        "x",
        "{\"a\":1}",
        "<plist><dict><key>a",
        "bplist00",
        list("<array><true/>"),
        list("<string>a"),
    };
    for (const QByteArray &document : documents)
        expectAgreement(document);
}

/// The plain reader is the stricter one: it never guesses.
TEST(PlainPropertyList, DoubtfulDocumentsAreRefused) {
    const std::pair<const char *, QByteArray> documents[] = {
        {"key twice", list("<dict><key>a</key><true/><key>a</key><false/></dict>")},
        {"key that becomes the same", list("<dict><key>a</key><true/><key>&#97;</key><false/></dict>")},
        {"entity of its own", "<!DOCTYPE plist [<!ENTITY e \"x\">]>" + list("<string>&e;</string>")},
        {"unknown entity", list("<string>&nbsp;</string>")},
        {"NUL by number", list("<string>a&#0;b</string>")},
        {"surrogate by number", list("<string>&#xD800;</string>")},
        {"beyond Unicode", list("<string>&#x110000;</string>")},
        {"control character", list("<string>a\x01z</string>")},
        {"broken UTF-8", list("<string>a\xFFz</string>")},
        {"overlong UTF-8", list("<string>\xC0\xAF</string>")},
        {"surrogate in UTF-8", list("<string>\xED\xA0\x80</string>")},
        {"another encoding", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + list("<true/>")},
        {"no list around it", "<dict/>"},
        {"two values", list("<true/><true/>")},
        {"no value", list("")},
        {"something behind it", list("<true/>") + "<dict/>"},
        {"another element", list("<float>1</float>")},
        {"an element in a text", list("<string>a<true/></string>")},
        {"wrong end", list("<array><true/></dict>")},
        {"attribute", list("<string a=\"b\">x</string>")},
        {"value without a key", list("<dict><true/></dict>")},
        {"too large a number", list("<integer>18446744073709551616</integer>")},
        {"too small a number", list("<integer>-9223372036854775809</integer>")},
        {"key without a value", list("<dict><key>a</key></dict>")},
        {"byte order mark", "\xEF\xBB\xBF" + list("<true/>")},
        {"no number", list("<integer>12x</integer>")},
        {"empty number", list("<integer/>")},
        {"number of entities", list("<integer>&#49;</integer>")},
        {"date in a literal", list("<date><![CDATA[2026-01-31T23:59:59Z]]></date>")},
        {"attribute that does not end", "<plist version=\"1.0><true/></plist>"},
        {"no real", list("<real>1,5</real>")},
        {"no day", list("<date>2026-02-30T00:00:00Z</date>")},
        {"no leap day", list("<date>2027-02-29T00:00:00Z</date>")},
        {"no month", list("<date>2026-13-01T00:00:00Z</date>")},
        {"month nought", list("<date>2026-00-01T00:00:00Z</date>")},
        {"day nought", list("<date>2026-01-00T00:00:00Z</date>")},
        {"no hour", list("<date>2026-01-01T24:00:00Z</date>")},
        {"no minute", list("<date>2026-01-01T00:60:00Z</date>")},
        {"no second", list("<date>2026-01-01T00:00:60Z</date>")},
        {"another form of date", list("<date>2026-02-03</date>")},
        {"no base64", list("<data>A=AA</data>")},
        {"half of base64", list("<data>AAE</data>")},
        {"too deep", list(QByteArray("<array>").repeated(200) + QByteArray("</array>").repeated(200))},
        {"too large", list("<string>" + QByteArray(5 << 20, 'x') + "</string>")},
    };
    for (const auto &[what, document] : documents)
        EXPECT_FALSE(readPlain(document)) << what;
    EXPECT_TRUE(readPlain(list(QByteArray("<array>").repeated(100) + QByteArray("</array>").repeated(100))));
}

/// A binary document: objects, then their offsets of one byte each.
QByteArray binary(const QList<QByteArray> &objects, int root = 0) {
    QByteArray document = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += static_cast<char>(document.size());
        document += object;
    }
    const qsizetype table = document.size();
    document += offsets + QByteArray(6, '\0') + "\x01\x01" + QByteArray(7, '\0') +
                static_cast<char>(objects.size()) + QByteArray(7, '\0') + static_cast<char>(root) +
                QByteArray(7, '\0') + static_cast<char>(table);
    return document;
}

TEST(PlainPropertyList, BinaryDocumentsAreReadWithinTheirBounds) {
    expectAgreement(binary({"\xA2\x01\x02", QByteArray("\x10\x07", 2),
                            QByteArray("\x51"
                                       "a",
                                       2)}));
    const auto ok = readPlain(binary({QByteArray("\xD1\x01\x02", 3), "\x51k", "\x51v"}));
    ASSERT_TRUE(ok);
    EXPECT_EQ(*ok->member("k")->text(), "v");
    const std::pair<const char *, QByteArray> documents[] = {
        {"circle", binary({QByteArray("\xA1\x00", 2)})},
        {"reference beyond the end", binary({"\xA1\x07"})},
        {"root beyond the end", binary({"\x09"}, 3)},
        {"key that is a number", binary({QByteArray("\xD1\x01\x02", 3), QByteArray("\x10\x07", 2), "\x51v"})},
        {"key twice", binary({QByteArray("\xD2\x01\x02\x03\x03", 5), "\x51k", "\x51k", "\x51v"})},
        {"text beyond the end", binary({"\x5F\x10\x7F"
                                        "abc"})},
        {"text of a negative length", binary({QByteArray("\x5F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
                                                         "abc",
                                                         13)})},
        {"NUL in a text", binary({QByteArray("\x53"
                                             "a\0b",
                                             4)})},
        {"eighth bit in ASCII", binary({"\x51\xFC"})},
        {"half a surrogate pair", binary({QByteArray("\x61\xD8\x00", 3)})},
        {"length that is no number", binary({"\x5F\x51\x01"
                                             "a"})},
        {"unknown kind", binary({QByteArray("\x80\x01", 2)})},
        {"another version", "bplist15" + binary({"\x09"}).mid(8)},
        {"nothing but the trailer", binary({})},
        {"integer of 16 bytes", binary({"\x14" + QByteArray(16, '\1')})},
    };
    for (const auto &[what, document] : documents)
        EXPECT_FALSE(readPlain(document)) << what;
    for (qsizetype size = 0; size < 60; ++size)
        (void)readPlain(binary({"\xA2\x01\x02", QByteArray("\x10\x07", 2),
                                "\x51"
                                "a"})
                            .left(size));
}

/// Thirty arrays that each hold the next one twice are a thousand million values in 200 bytes.
TEST(PlainPropertyList, RepetitionDoesNotMultiply) {
    QList<QByteArray> objects;
    for (int i = 0; i < 30; ++i)
        objects += QByteArray("\xA2") + static_cast<char>(i + 1) + static_cast<char>(i + 1);
    objects += "\x09";
    EXPECT_FALSE(readPlain(binary(objects)));
    EXPECT_TRUE(readPlain(binary({QByteArray("\xA2\x01\x01"), QByteArray("\x09")})));
}

TEST(PlainPropertyList, WhatIsWrittenIsReadByBoth) {
    using namespace tx::plain;
    const Value value{Dictionary{{"text", {std::string("ü <&> \x01 \xFF")}},
                                 {"number", {int64_t(-7)}},
                                 {"real", {0.1}},
                                 {"yes", {true}},
                                 {"date", {Date{12345}}},
                                 {"data", {Data{std::string("\0\1\2\3\377", 5)}}},
                                 {"none", {Array{}}},
                                 {"list", {Array{{std::string("a")}, {Dictionary{}}}}}}};
    const QByteArray document = QByteArray::fromStdString(writePropertyList(value));
    expectAgreement(document);
    const auto read = tx::readPropertyList(document);
    ASSERT_TRUE(bool(read)) << document.constData();
    const QVariantMap map = read->toMap();
    EXPECT_EQ(map[u"text"_s], u"ü <&> \uFFFD \uFFFD"_s);
    EXPECT_EQ(map[u"number"_s], qint64(-7));
    EXPECT_EQ(map[u"real"_s], 0.1);
    EXPECT_EQ(map[u"yes"_s], true);
    EXPECT_EQ(map[u"data"_s], QByteArray("\0\1\2\3\377", 5));
    EXPECT_EQ(map[u"date"_s].toDateTime().toSecsSinceEpoch(), 978307200 + 12345);
    EXPECT_EQ(map[u"list"_s].toList().size(), 2);
}

TEST(PlainText, IsUtf8WithoutNulWhereverACharacterStands) {
    const struct {
        std::string_view character;
        bool isText;
    } table[] = {{"\x01", true},
                 {"\x7F", true},
                 {std::string_view("\0", 1), false},
                 {"\x80", false},
                 {"\xC2\x80", true},
                 {"\xDF\xBF", true},
                 {"\xC1\xBF", false},
                 {"\xC2", false},
                 {"\xE0\xA0\x80", true},
                 {"\xE0\x9F\xBF", false},
                 {"\xEF\xBF\xBF", true},
                 {"\xE2\x82", false},
                 {"\xED\xA0\x80", false},
                 {"\xF0\x90\x80\x80", true},
                 {"\xF4\x8F\xBF\xBF", true},
                 {"\xF4\x90\x80\x80", false},
                 {"\xF0\x8F\xBF\xBF", false},
                 {"\xFF", false}};
    for (const auto &[character, isText] : table) {
        for (size_t before = 0; before < 20; ++before) {
            for (size_t behind = 0; behind < 20; ++behind) {
                const std::string text =
                    std::string(before, 'x') + std::string(character) + std::string(behind, '\x01');
                EXPECT_EQ(tx::plain::detail::isText(text), isText) << before << " " << behind << text;
                EXPECT_EQ(tx::plain::detail::isText("\xC3\xA9" + text), isText) << before << " " << behind;
            }
        }
    }
    EXPECT_TRUE(tx::plain::detail::isText(""));
}

} // namespace
