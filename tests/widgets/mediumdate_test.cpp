// SPDX-License-Identifier: MIT
#include "tests/support/environment.h"
#include "widgets/mediumdate.h"

#include <QDateTime>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

class MediumDate : public tx::test::FrameworkTest {
protected:
    const QDateTime date{QDate(2023, 3, 13), QTime(12, 0)}; // a Monday
    ~MediumDate() override {
        QLocale::setDefault(QLocale::c());
        for (const char *name : {"LC_ALL", "LC_TIME", "LANG"})
            qunsetenv(name);
    }
    [[nodiscard]] QString in(const QString &locale) const {
        QLocale::setDefault(QLocale(locale));
        return tx::mediumDate(date);
    }
};

/// From the Unicode locale data (gregorianCalendar medium formats, and the calendars that countries prefer):
/// every order, kind of month, digits and calendar. None of these has changed from version 41 to 48.
TEST_F(MediumDate, IsTheLocales) {
    struct Case {
        QString locale, text;
    };
    for (const Case &c : {Case{u"en_US"_s, u"Mar 13, 2023"_s},   {u"en_GB"_s, u"13 Mar 2023"_s},
                          {u"es_ES"_s, u"13 mar 2023"_s},        {u"da_DK"_s, u"13. mar. 2023"_s},
                          {u"fi_FI"_s, u"13.3.2023"_s},          {u"de_DE"_s, u"13.03.2023"_s},
                          {u"et_EE"_s, u"13. märts 2023"_s},     {u"fr_FR"_s, u"13 mars 2023"_s},
                          {u"it_IT"_s, u"13 mar 2023"_s},        {u"nl_NL"_s, u"13 mrt 2023"_s},
                          {u"sv_SE"_s, u"13 mars 2023"_s},       {u"cs_CZ"_s, u"13. 3. 2023"_s},
                          {u"hu_HU"_s, u"2023. márc. 13."_s},    {u"pl_PL"_s, u"13 mar 2023"_s},
                          {u"pt_BR"_s, u"13 de mar. de 2023"_s}, {u"pt_PT"_s, u"13/03/2023"_s},
                          {u"el_GR"_s, u"13 Μαρ 2023"_s},        {u"ja_JP"_s, u"2023/03/13"_s},
                          {u"ko_KR"_s, u"2023. 3. 13."_s},       {u"zh_CN"_s, u"2023年3月13日"_s},
                          {u"zh_TW"_s, u"2023年3月13日"_s},      {u"th_TH"_s, u"13 มี.ค. 2566"_s},
                          {u"fa_IR"_s, u"۲۲ اسفند ۱۴۰۱"_s},      {u"hi_IN"_s, u"13 मार्च 2023"_s},
                          {u"sr_Latn_RS"_s, u"13. 3. 2023."_s}})
        EXPECT_EQ(in(c.locale).toStdString(), c.text.toStdString()) << c.locale.toStdString();
}

/// In none of Qt's locales is it the long form, which names the day of the week, or more than one.
TEST_F(MediumDate, NamesDayMonthAndYearInEveryLocale) {
    const auto locales =
        QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry);
    EXPECT_GT(locales.size(), 400);
    for (const QLocale &locale : locales) {
        const std::string name = locale.bcp47Name().toStdString();
        QLocale::setDefault(locale);
        const QString text = tx::mediumDate(date);
        EXPECT_FALSE(text.isEmpty()) << name;
        EXPECT_FALSE(text.contains(locale.dayName(1, QLocale::LongFormat)))
            << name << ' ' << text.toStdString();
        EXPECT_NE(tx::mediumDate(date.addDays(1)), text) << name;
        EXPECT_NE(tx::mediumDate(date.addMonths(1)), text) << name;
        EXPECT_NE(tx::mediumDate(date.addYears(1)), text) << name;
        // 2023 of the common calendar, or a year of another one, in any digits; never two of them.
        int digits = 0;
        for (const char32_t c : text.toStdU32String())
            digits += QChar::isDigit(c) ? 1 : 0;
        EXPECT_GE(digits, 5) << name << ' ' << text.toStdString();
        EXPECT_EQ(tx::mediumDate(QDateTime(date.date(), QTime(0, 0))), text) << name << ": no time";
        EXPECT_EQ(tx::mediumDate(QDateTime(date.date(), QTime(23, 59))), text) << name << ": no time";
    }
}

TEST_F(MediumDate, OfNoDateIsEmpty) { EXPECT_EQ(tx::mediumDate({}), QString()); }

TEST_F(MediumDate, FollowsTheUsersChoiceForDatesUntilTheApplicationSetsALocale) {
    QLocale::setDefault(QLocale::system());
    struct Case {
        const char *all, *time, *lang;
        QString text;
    };
    for (const Case &c : {Case{"", "", "da_DK.UTF-8", u"13. mar. 2023"_s},
                          Case{"", "fi_FI.UTF-8", "da_DK.UTF-8", u"13.3.2023"_s},
                          Case{"es_ES.UTF-8", "fi_FI.UTF-8", "da_DK.UTF-8", u"13 mar 2023"_s},
                          Case{"", "", "", u"Mar 13, 2023"_s}, Case{"C", "", "", u"Mar 13, 2023"_s}}) {
        qputenv("LC_ALL", c.all);
        qputenv("LC_TIME", c.time);
        qputenv("LANG", c.lang);
        EXPECT_EQ(tx::mediumDate(date), c.text);
    }
    qputenv("LC_ALL", "da_DK.UTF-8");
    EXPECT_EQ(in(u"fi_FI"_s), u"13.3.2023"_s);
}

} // namespace
