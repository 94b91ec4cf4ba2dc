// SPDX-License-Identifier: MIT
#include "base/propertylist.h"
#include "base/stringstable.h"
#include "os/localization.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <QCoreApplication>
#include <QStringEncoder>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {

class Localization : public tx::test::FrameworkTest {
protected:
    Localization() { tx::test::makeBundle(path(u"L.app"_s), {}); }
    QString look(const QString &key, const QStringList &languages, const QString &table = u"Localizable"_s) {
        return tx::localizedString(key, table, TXBundle(path(u"L.app"_s)), languages);
    }
    void writeTable(const QString &name, const QByteArray &text) {
        tx::test::writeFile(path(u"L.app/Contents/Resources/"_s + name), text);
    }
};

TEST_F(Localization, FollowsThePreferredLanguages) {
    writeTable(u"de.lproj/Localizable.strings"_s, "\"Hi\" = \"Hallo\";\"Only\"=\"Nur\";");
    writeTable(u"pt_BR.lproj/Localizable.strings"_s, "\"Hi\" = \"Oi\";");
    writeTable(u"pt.lproj/Localizable.strings"_s, "\"Hi\" = \"Ola\"; \"More\" = \"Mais\";");
    writeTable(u"de.lproj/Other.strings"_s, "\"Hi\" = \"Servus\";");
    EXPECT_EQ(look(u"Hi"_s, {u"de-AT"_s}), u"Hallo"_s);
    EXPECT_EQ(look(u"Hi"_s, {u"pt-BR"_s, u"de"_s}), u"Oi"_s);
    EXPECT_EQ(look(u"More"_s, {u"pt-BR"_s, u"de"_s}), u"Mais"_s);
    EXPECT_EQ(look(u"Only"_s, {u"pt-BR"_s, u"de"_s}), u"Nur"_s);
    EXPECT_EQ(look(u"Hi"_s, {u"fr"_s}), u"Hi"_s);
    EXPECT_EQ(look(u"Hi"_s, {u"en-GB"_s, u"de"_s}), u"Hi"_s) << "the keys are English";
    EXPECT_EQ(look(u"Hi"_s, {u"de"_s}, u"Other"_s), u"Servus"_s);
}

class Translator : public QTranslator {
public:
    QString translate(const char *context, const char *source, const char *, int) const override {
        return qstrcmp(context, "TarvixUpdate") == 0 ? u"[%1]"_s.arg(QString::fromUtf8(source)) : QString();
    }
    bool isEmpty() const override { return false; }
};

TEST_F(Localization, ThenAsksTheApplicationsTranslators) {
    writeTable(u"de.lproj/Localizable.strings"_s, "\"Hi\" = \"Hallo\";");
    Translator translator;
    QCoreApplication::installTranslator(&translator);
    EXPECT_EQ(look(u"Hi"_s, {u"de"_s}), u"Hallo"_s);
    EXPECT_EQ(look(u"Bye"_s, {u"de"_s}), u"[Bye]"_s);
    QCoreApplication::removeTranslator(&translator);
}

TEST_F(Localization, WordsComeFromWhereTheirSentenceComesFrom) {
    tx::setMainBundle(TXBundle(path(u"L.app"_s)));
    tx::services().preferredLanguages = [] { return QStringList{u"fr"_s, u"de"_s}; };
    writeTable(u"de.lproj/T.strings"_s, "\"In %@\" = \"Im %@\"; \"house\" = \"Haus\"; \"empty\" = \"\";");
    writeTable(u"fr.lproj/T.strings"_s, "\"house\" = \"maison\"; \"garden\" = \"jardin\";");
    const tx::LocalizedSentence sentence(u"In %@"_s, u"T"_s);
    EXPECT_EQ(sentence.filledWith({sentence.word(u"house"_s)}), u"Im Haus"_s);
    EXPECT_EQ(sentence.word(u"garden"_s), u"garden"_s) << "in another table only";
    EXPECT_EQ(sentence.word(u"empty"_s), u"empty"_s);
    const tx::LocalizedSentence unknown(u"By %@"_s, u"T"_s);
    EXPECT_EQ(unknown.filledWith({unknown.word(u"house"_s)}), u"By house"_s);

    Translator translator;
    QCoreApplication::installTranslator(&translator);
    const tx::LocalizedSentence translated(u"By %@"_s, u"T"_s);
    EXPECT_EQ(translated.filledWith({translated.word(u"house"_s)}), u"[By [house]]"_s);
    EXPECT_EQ(tx::LocalizedSentence(u"In %@"_s, u"T"_s).word(u"house"_s), u"Haus"_s) << "tables come first";
    QCoreApplication::removeTranslator(&translator);
}

TEST_F(Localization, BrokenTableIsLoggedAndTheKeyStands) {
    writeTable(u"de.lproj/Localizable.strings"_s, "\"Hi\" = \n\"Hallo");
    EXPECT_EQ(look(u"Hi"_s, {u"de"_s}), u"Hi"_s);
    EXPECT_THAT(logLines().join(u'\n').toStdString(), testing::HasSubstr("line 2"));
}

TEST(StringsTable, ReadsCommentsEscapesAndEncodings) {
    const QString text =
        u"/* a\n comment */ \"a\" = \"1\"; // b\n\"q\\\"\" = \"x\\n\\t\\\\\\U00e4\";\nplain = word;\n"
        "\"self\";\"\u00FC\"=\"\u20AC\";"_s;
    for (const auto encoding :
         {QStringConverter::Utf8, QStringConverter::Utf16LE, QStringConverter::Utf16BE}) {
        const bool mark = encoding != QStringConverter::Utf8;
        QStringEncoder encoder(encoding,
                               mark ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
        const QByteArray data = encoder.encode(text);
        const auto table = tx::readStringsTable(data);
        ASSERT_TRUE(bool(table)) << table.error().toString().toStdString();
        EXPECT_EQ(table->value(u"a"_s), u"1"_s);
        EXPECT_EQ(table->value(u"q\""_s), u"x\n\t\\\u00E4"_s);
        EXPECT_EQ(table->value(u"plain"_s), u"word"_s);
        EXPECT_EQ(table->value(u"self"_s), u"self"_s);
        EXPECT_EQ(table->value(u"\u00FC"_s), u"\u20AC"_s);
    }
    const auto list = tx::readStringsTable(tx::writePropertyList(QVariantMap{{u"a"_s, u"b"_s}}));
    ASSERT_TRUE(bool(list));
    EXPECT_EQ(list->value(u"a"_s), u"b"_s);
}

TEST(StringsTable, ErrorsNameTheLine) {
    const QList<std::pair<QByteArray, QString>> cases{
        {"\"a\" = \"b\"", u"line 1"_s}, {"\n\n\"a\" \"b\";", u"line 3"_s},    {"\"a\" = ;", u"line 1"_s},
        {"/* open", u"line 1"_s},       {"\"a\" = \"\\Uxyz\";", u"line 1"_s}, {"= \"b\";", u"line 1"_s}};
    for (const auto &[text, where] : cases) {
        const auto table = tx::readStringsTable(text);
        ASSERT_FALSE(bool(table)) << text.constData();
        EXPECT_THAT(table.error().localizedFailureReason().toStdString(),
                    testing::StartsWith(where.toStdString()));
    }
}

} // namespace
