// SPDX-License-Identifier: MIT
#include "base/plurals.h"
#include "os/localization.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"

#include <QCoreApplication>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {

const qint64 numbers[] = {0, 1, 2, 5, 11, 21, 22, 25, 101, 111};

TEST(Plurals, CategoriesAreThoseOfEachLanguage) {
    struct Language {
        QString tag;
        QString categories; ///< of 0, 1, 2, 5, 11, 21, 22, 25, 101 and 111
    };
    const QString oneForOne = u"other one other other other other other other other other"_s;
    const QString zeroAndOne = u"one one other other other other other other other other"_s;
    const QString none = u"other other other other other other other other other other"_s;
    const QString slavic = u"many one few many many one few many one many"_s;
    const QList<Language> languages{
        {u"en"_s, oneForOne},
        {u"de"_s, oneForOne},
        {u"es"_s, oneForOne},
        {u"it"_s, oneForOne},
        {u"pt-PT"_s, oneForOne},
        {u"fr"_s, zeroAndOne},
        {u"fr-CA"_s, zeroAndOne},
        {u"pt-BR"_s, zeroAndOne},
        {u"pt_BR"_s, zeroAndOne},
        {u"ja"_s, none},
        {u"zh-Hans"_s, none},
        {u"ru"_s, slavic},
        {u"uk"_s, slavic},
        {u"ar"_s, u"zero one two few many many many many other many"_s},
        {u"pl"_s, u"many one few many many many few many many many"_s},
        {u"cs"_s, u"other one few other other other other other other other"_s},
        {u"hr"_s, u"other one few other other one few other one other"_s},
        {u"tlh"_s, oneForOne},
        {u"run"_s, oneForOne}, // not a relative of "ru"
    };
    for (const Language &language : languages) {
        QStringList found;
        for (const qint64 number : numbers)
            found << tx::pluralCategoryName(tx::pluralCategory(language.tag, number));
        EXPECT_EQ(found.join(u' '), language.categories) << language.tag.toStdString();
    }
}

TEST(Plurals, TeensAndMillionsHaveTheirOwnRules) {
    using enum tx::PluralCategory;
    for (const qint64 teen : {12, 13, 14, 112, 1013}) {
        EXPECT_EQ(tx::pluralCategory(u"ru"_s, teen), Many) << teen;
        EXPECT_EQ(tx::pluralCategory(u"pl"_s, teen), Many) << teen;
    }
    EXPECT_EQ(tx::pluralCategory(u"ar"_s, 103), Few);
    EXPECT_EQ(tx::pluralCategory(u"ar"_s, 100), Other);
    for (const QString &language : {u"es"_s, u"fr"_s, u"pt-BR"_s}) {
        EXPECT_EQ(tx::pluralCategory(language, 1000000), Many);
        EXPECT_EQ(tx::pluralCategory(language, 1000001), Other);
    }
    EXPECT_EQ(tx::pluralCategory(u"de"_s, 1000000), Other);
    EXPECT_EQ(tx::pluralCategory(u"ru"_s, -1), One);
}

class PluralTexts : public tx::test::FrameworkTest {
protected:
    /// A table of the host's own.
    static void writeTable(const QByteArray &text) {
        tx::test::writeFile(TXBundle::mainBundle().bundlePath() +
                                u"/Contents/Resources/pl.lproj/Localizable.strings"_s,
                            text);
        tx::services().preferredLanguages = [] { return QStringList{u"pl"_s}; };
    }
    static QString files(qint64 count) {
        return tx::localizedPlural(u"%d files"_s, count, {QString::number(count)});
    }
};

TEST_F(PluralTexts, HostsTableMayHaveFormsAndWhatItLacksIsTheTextForAllNumbers) {
    writeTable(
        "\"%d files\" = \"%d pliku\"; \"%d files [one]\" = \"%d plik\"; \"%d files [few]\" = \"%d pliki\";");
    EXPECT_EQ(files(1), u"1 plik"_s);
    EXPECT_EQ(files(22), u"22 pliki"_s);
    EXPECT_EQ(files(5), u"5 pliku"_s);
}

TEST_F(PluralTexts, HostsTextWithoutFormsComesBeforeTheFrameworksForms) {
    writeTable("\"You are %d updates behind!\" = \"%d!\";");
    tx::services().preferredLanguages = [] { return QStringList{u"pl"_s, u"ru"_s}; };
    EXPECT_EQ(tx::localizedPlural(u"You are %d updates behind!"_s, 1, {u"1"_s}), u"1!"_s);
}

class NumberTranslator : public QTranslator {
public:
    QString translate(const char *, const char *source, const char *, int n) const override {
        return qstrcmp(source, "%d files") == 0 ? u"form %1 of %d"_s.arg(n) : QString();
    }
    bool isEmpty() const override { return false; }
};

TEST_F(PluralTexts, ApplicationsTranslatorsAreToldTheNumber) {
    NumberTranslator translator;
    QCoreApplication::installTranslator(&translator);
    EXPECT_EQ(files(3), u"form 3 of 3"_s);
    QCoreApplication::removeTranslator(&translator);
}

} // namespace
