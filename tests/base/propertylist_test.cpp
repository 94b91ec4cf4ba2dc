// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "tests/support/environment.h"

using namespace Qt::StringLiterals;
using tx::PropertyListFormat;

namespace {

const QVariantMap everything{
    {u"bool"_s, true},
    {u"no"_s, false},
    {u"double"_s, 3600.25},
    {u"integer"_s, qint64(1234567890123)},
    {u"string"_s, u"\u00FC <&> \U0001F600"_s},
    {u"empty"_s, u""_s},
    {u"date"_s, QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5), Qt::UTC)},
    {u"old"_s, QDateTime(QDate(1999, 1, 2), QTime(3, 4, 5), Qt::UTC)},
    {u"data"_s, QByteArray("\x00\x01\xff", 3)},
    {u"list"_s, QVariantList{u"a"_s, QVariantMap{{u"k"_s, u"v"_s}}, QVariantList{}}}};

/// A binary property list with one string, at least 256 UTF-16 units long.
QByteArray listOf(const QString &string) {
    const auto big = [](qsizetype number, int bytes) {
        QByteArray result;
        for (int i = bytes - 1; i >= 0; --i)
            result += char(number >> (8 * i));
        return result;
    };
    QByteArray result = "bplist00\xa1\x01\x6f\x11" + big(string.size(), 2);
    for (const QChar unit : string)
        result += big(unit.unicode(), 2);
    const qsizetype table = result.size();
    // Where the two objects are; then the sizes of offsets and of references, the number of objects, which of
    // them is the top one, and where the table is.
    return result + big(8, 2) + big(10, 2) + big(0, 6) + big(2, 1) + big(1, 1) + big(2, 8) + big(0, 8) +
           big(table, 8);
}

TEST(PropertyList, KeepsEveryTypeInBothFormats) {
    for (const auto format : {PropertyListFormat::Xml, PropertyListFormat::Binary}) {
        const QByteArray data = tx::writePropertyList(everything, format);
        EXPECT_EQ(data.startsWith("bplist"), format == PropertyListFormat::Binary);
        const auto read = tx::readPropertyList(data);
        ASSERT_TRUE(bool(read)) << read.error().toString().toStdString();
        EXPECT_EQ(read->toMap(), everything);
        EXPECT_EQ(read->toMap().value(u"bool"_s).typeId(), QMetaType::Bool);
        EXPECT_EQ(read->toMap().value(u"double"_s).typeId(), QMetaType::Double);
    }
}

TEST(PropertyList, NulCharactersInTextsAreRefused) {
    const QByteArray documents[] = {
        // A key, a short, a two-byte, a long and a long two-byte text with a NUL.
        QByteArray::fromHex("62706c6973743030d10102536100621001080b0f0000000000000101000000000000000300000000"
                            "000000000000000000000011"),
        QByteArray::fromHex("62706c6973743030d10102516b53610062080b0d0000000000000101000000000000000300000000"
                            "000000000000000000000011"),
        QByteArray::fromHex("62706c6973743030a1016300e4000000e4080a000000000000010100000000000000020000000000"
                            "0000000000000000000011"),
        QByteArray::fromHex(
            "62706c6973743030a1015f10297878787878787878787878787878787878787878787878787878787878787878787878"
            "787878787800080a0000000000000101000000000000000200000000000000000000000000000036"),
        listOf(QString(300, u'\u00e4') + QChar(u'\0')),
        QByteArray("<plist version=\"1.0\"><string>a\0b</string></plist>", 47),
    };
    for (const QByteArray &document : documents) {
        EXPECT_EQ(tx::readPropertyList(document).error().localizedFailureReason(),
                  u"a text in it holds a NUL character"_s)
            << document.toHex().constData();
    }
    EXPECT_FALSE(tx::readPropertyList("<plist version=\"1.0\"><string>a&#0;b</string></plist>"));
    const QByteArray others[] = {
        // Zero bytes that are no NUL characters: in other characters, data and numbers.
        QByteArray::fromHex("62706c6973743030a1016201000001080a0000000000000101000000000000000200000000000000"
                            "00000000000000000f"),
        QByteArray::fromHex(
            "62706c6973743030a101420000080a000000000000010100000000000000020000000000000000000000000000000d"),
        QByteArray::fromHex("62706c6973743030a30102031000233ff000000000000009080c0e17000000000000010100000000"
                            "0000000400000000000000000000000000000018"),
        listOf(QString(300, u'\u00e4')),
        QByteArray::fromHex(
            "62706c6973743030d0080000000000000101000000000000000100000000000000000000000000000009"),
    };
    for (const QByteArray &document : others)
        EXPECT_TRUE(bool(tx::readPropertyList(document))) << document.toHex().constData();
}

TEST(PropertyList, CharactersThatXmlCannotHoldAreReplaced) {
    const auto read = tx::readPropertyList(tx::writePropertyList(QVariantMap{{u"k"_s, u"a\x01"_s
                                                                                      "b"}}));
    ASSERT_TRUE(bool(read));
    EXPECT_EQ(read->toMap().value(u"k"_s), u"a\uFFFDb"_s);
    const auto others = tx::readPropertyList(tx::writePropertyList(u"\uFFFE\uFFFF\t\n\uFFFD"_s));
    ASSERT_TRUE(bool(others)) << others.error().toString().toStdString();
    EXPECT_EQ(*others, u"\uFFFD\uFFFD\t\n\uFFFD"_s);
}

TEST(PropertyList, DepthAndSizeHaveTheirLimits) {
    // The outermost one is at depth 0.
    for (const int arrays : {129, 130}) {
        const auto read = tx::readPropertyList("<plist>" + QByteArray("<array>").repeated(arrays) +
                                               QByteArray("</array>").repeated(arrays) + "</plist>");
        EXPECT_EQ(bool(read), arrays == 129) << arrays;
    }
    const auto large = tx::readPropertyList(QByteArray((64 << 20) + 1, ' '));
    ASSERT_FALSE(bool(large));
    EXPECT_EQ(large.error().localizedFailureReason(), u"it is too large"_s);
    const auto largest = tx::readPropertyList("<plist><true/></plist>" + QByteArray((64 << 20) - 22, ' '));
    EXPECT_TRUE(bool(largest));
}

class BrokenPropertyList : public testing::TestWithParam<QByteArray> {};

TEST_P(BrokenPropertyList, IsRefusedWithAReason) {
    const auto read = tx::readPropertyList(GetParam());
    ASSERT_FALSE(bool(read));
    EXPECT_FALSE(read.error().localizedFailureReason().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Inputs, BrokenPropertyList,
                         testing::Values(QByteArray(), QByteArray("x"), QByteArray("{\"a\":1}"),
                                         QByteArray("<plist><dict><key>a"), QByteArray("bplist00"),
                                         QByteArray("bplist00\xff\xff\xff\xff\xff\xff\xff\xff"),
                                         QByteArray("<plist>") + QByteArray("<array>").repeated(1000) +
                                             QByteArray("</array>").repeated(1000) + "</plist>"));

} // namespace
