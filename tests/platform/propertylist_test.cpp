// SPDX-License-Identifier: MIT
#include "platform/propertylist.h"
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

TEST(PropertyList, CharactersThatXmlCannotHoldAreReplaced) {
    const auto read = tx::readPropertyList(tx::writePropertyList(QVariantMap{{u"k"_s, u"a\x01"_s
                                                                                      "b"}}));
    ASSERT_TRUE(bool(read));
    EXPECT_EQ(read->toMap().value(u"k"_s), u"a\uFFFDb"_s);
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
