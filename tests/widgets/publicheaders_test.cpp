// SPDX-License-Identifier: MIT
// Rules that all public headers follow.
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/places.h"

#include <TarvixUpdate/TXQuitReply.h>
#include <TarvixUpdate/TXUpdateAppMoverPanel.h>
#include <TarvixUpdate/TXUpdatePostWindowController.h>
#include <TarvixUpdate/TarvixUpdate.h>

#include <QDir>
#include <QMetaEnum>
#include <QPointer>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

/// The public headers by name, without comments.
QMap<QString, QStringList> publicHeaders() {
    const QDir folder(tx::test::sourcesFolder() + u"/../include/TarvixUpdate"_s);
    static const QRegularExpression comment(u"\\s*//.*$"_s);
    QMap<QString, QStringList> result;
    for (const QString &name : folder.entryList({u"*.h"_s})) {
        QStringList lines = QString::fromUtf8(tx::test::readFile(folder.filePath(name))).split(u'\n');
        result[name] = lines.replaceInStrings(comment, QString());
    }
    return result;
}

/// Returns the name of the class member that a line declares; empty for any other line.
QString memberOf(QString line) {
    static const QRegularExpression arguments(u"<[^<>]*>"_s);
    while (line.contains(arguments))
        line.remove(arguments);
    static const QRegularExpression other(
        u"^\\s*(using|friend|struct|class|enum|static|typedef|extern|return|inline)\\b|[()]|^\\s*Q_"_s);
    static const QRegularExpression member(
        u"^\\s+[\\w: ]*\\w[*&\\s]+(\\w+)\\s*(\\[\\d*\\])?\\s*(=[^;]*|[{][^;]*[}])?;"_s);
    return line.contains(other) ? QString() : member.match(line).captured(1);
}

TEST(PublicHeaders, ScannerSeesMembers) {
    EXPECT_EQ(memberOf(u"    QString m_name;"_s), u"m_name"_s);
    EXPECT_EQ(memberOf(u"    std::function<void(const QList<int> &)> handler;"_s), u"handler"_s);
    EXPECT_EQ(memberOf(u"    QLabel *_field = nullptr;"_s), u"_field"_s);
    EXPECT_EQ(memberOf(u"    mutable bool isOpen{false};"_s), u"isOpen"_s);
    EXPECT_EQ(memberOf(u"    QMetaObject::Connection both[2];"_s), u"both"_s);
    EXPECT_EQ(memberOf(u"    const std::unique_ptr<Private> d;"_s), u"d"_s);
    EXPECT_TRUE(memberOf(u"    [[nodiscard]] QString name() const;"_s).isNull());
    EXPECT_TRUE(memberOf(u"    using Handler = std::function<void()>;"_s).isNull());
    EXPECT_TRUE(memberOf(u"    struct Private;"_s).isNull());
}

/// Returns whether the line begins a plain struct, whose members are public by design.
bool isRecord(const QString &line) {
    return line.contains(u"class TX_EXPORT TXUpdateItemConditions {") ||
           line.contains(u"struct TXUpdateCurrentConditions {");
}

TEST(PublicHeaders, ShowNoDataButThePointerToIt) {
    int classes = 0;
    const auto headers = publicHeaders();
    for (auto header = headers.begin(); header != headers.end(); ++header) {
        bool record = false;
        for (const QString &line : header.value()) {
            if (line.startsWith(u"class TX") || line.startsWith(u"struct TX"))
                record = isRecord(line);
            classes += line.startsWith(u"class TX_EXPORT");
            const QString member = memberOf(line);
            // References in a base class to private data.
            const bool isReference = line.contains(QRegularExpression(u"^    \\w+ &m_\\w+;"_s));
            if (!record && !isReference && !member.isNull()) {
                EXPECT_EQ(member.toStdString(), "d")
                    << header.key().toStdString() << ": " << line.toStdString();
            }
        }
    }
    EXPECT_GT(classes, 20) << "the headers are read";
}

TEST(PublicHeaders, NameNothingOfTheFrameworksInside) {
    static const QRegularExpression inside(u"\\btx::|namespace tx\\b"_s);
    const auto headers = publicHeaders();
    EXPECT_GT(headers.size(), 20);
    for (auto header = headers.begin(); header != headers.end(); ++header)
        EXPECT_TRUE(header.value().filter(inside).isEmpty())
            << header.key().toStdString() << ": " << header.value().filter(inside).join(u'\n').toStdString();
}

struct Enumeration {
    QMetaEnum made;
    const char *name;
    qint64 value;
    const char *key;
};

TEST(PublicHeaders, QtKnowsTheNamesOfEnumerators) {
    const Enumeration enumerations[] = {
        {QMetaEnum::fromType<TXLogLevel>(), "TXLogLevel", 4, "TXLogLevelNotice"},
        {QMetaEnum::fromType<TXUpdateConditionLaunch>(), "TXUpdateConditionLaunch",
         TXUpdateConditionLaunchNotFirst, "TXUpdateConditionLaunchNotFirst"},
        {QMetaEnum::fromType<TXUpdatePostDisplayTime>(), "TXUpdatePostDisplayTime",
         TXUpdatePostDisplayTimeAtQuit, "TXUpdatePostDisplayTimeAtQuit"},
        {QMetaEnum::fromType<TXUpdateVersionCharacterType>(), "TXUpdateVersionCharacterType",
         ::TXUpdateVersionCharacterTypeSeparator, "TXUpdateVersionCharacterTypeSeparator"},
        {QMetaEnum::fromType<TXUpdatePostWindowReturnCode>(), "TXUpdatePostWindowReturnCode",
         TXUpdatePostWindowAskLater, "TXUpdatePostWindowAskLater"},
        {QMetaEnum::fromType<TXStandardUpdateControllerStatus>(), "TXStandardUpdateControllerStatus",
         TXStandardUpdateControllerStatusChecking, "TXStandardUpdateControllerStatusChecking"},
        {QMetaEnum::fromType<TXUpdateErrorCode>(), "TXUpdateErrorCode", TXUpdateErrorFeedOlder,
         "TXUpdateErrorFeedOlder"},
        {QMetaEnum::fromType<TXUpdateAppMover::Result>(), "Result", TXUpdateAppMover::Failed, "Failed"},
        {QMetaEnum::fromType<TXUpdateSystemProfile::Contents>(), "Contents",
         qint64(TXUpdateSystemProfile::Contents::Empty), "Empty"},
        {QMetaEnum::fromType<TXVersionNumber::Format>(), "Format", TXVersionNumber::PlainString,
         "PlainString"},
        {QMetaEnum::fromType<TXVersionNumber::Suffix>(), "Suffix", TXVersionNumber::Candidate, "Candidate"},
    };
    for (const Enumeration &e : enumerations) {
        EXPECT_STREQ(e.made.enumName(), e.name);
        EXPECT_STREQ(e.made.valueToKey(int(e.value)), e.key);
    }
}

class Parents : public tx::test::FrameworkTest {};

TEST_F(Parents, DestroyWhatTheyOwn) {
    auto parent = std::make_unique<QObject>();
    const QList<QPointer<QObject>> owned{new TXUpdate(parent.get()),
                                         new TXStandardUpdateController(parent.get()),
                                         new TXUpdateAppMoverPanel(parent.get())};
    for (const auto &object : owned)
        EXPECT_EQ(object->parent(), parent.get());
    parent.reset();
    for (const auto &object : owned)
        EXPECT_FALSE(object);
    EXPECT_FALSE(TXUpdater::sharedUpdater()->delegate()) << "the controller was the delegate";
}

TEST_F(Parents, AreNotNeeded) {
    EXPECT_EQ(TXUpdate().parent(), nullptr);
    EXPECT_EQ(TXStandardUpdateController().parent(), nullptr);
    EXPECT_EQ(TXUpdateAppMoverPanel().parent(), nullptr);
}

TEST(PublicValues, CopiesOfAProfileChangeApart) {
    TXUpdateSystemProfile one(TXUpdateSystemProfile::Contents::Empty);
    one.setRAM(1024);
    TXUpdateSystemProfile two(one);
    two.setRAM(2048);
    EXPECT_EQ(one.RAM(), 1024U);
    one = two;
    two.setLanguage(u"de"_s);
    EXPECT_EQ(one.RAM(), 2048U);
    EXPECT_TRUE(one.language().isNull());
}

TEST(PublicValues, VersionNumberIsWholeAfterAMove) {
    TXVersionNumber one = TXVersionNumber::versionNumberWithString(u"2.1b3"_s);
    const TXVersionNumber two = std::move(one);
    EXPECT_EQ(one.stringValue(), two.stringValue()); // NOLINT: that is the promise
    EXPECT_EQ(two.suffix(), TXVersionNumber::Beta);
}

} // namespace
