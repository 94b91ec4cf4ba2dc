// SPDX-License-Identifier: MIT
// The list of texts is complete, and every language has all of it.
#include "base/plurals.h"
#include "base/stringstable.h"
#include "os/localization.h"
#include "tests/support/places.h"
#include "tests/widgets/uitest.h"

#include <TarvixUpdate/TXUpdatePanel.h>

#include <QDirIterator>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QStringList shipped{u"ar"_s, u"de"_s, u"es"_s, u"fr"_s, u"ja"_s, u"pt-BR"_s, u"ru"_s, u"zh-Hans"_s};

QHash<QString, QString> tableOf(const QString &language) {
    const auto table = tx::readStringsTable(
        tx::test::readFile(tx::test::resourcesFolder() + u"/%1.lproj/TarvixUpdate.strings"_s.arg(language)));
    EXPECT_TRUE(bool(table)) << language.toStdString();
    return table ? *table : QHash<QString, QString>();
}

/// The kinds of values that a text takes, in the order of their numbers.
QStringList conversionsOf(const QString &text) {
    static const QRegularExpression conversion(u"%(?:(\\d+)\\$)?(l*[@sdiu])"_s);
    QMap<int, QString> found;
    int next = 1;
    for (auto it = conversion.globalMatch(text); it.hasNext();) {
        const auto match = it.next();
        found[match.captured(1).isEmpty() ? next++ : match.captured(1).toInt()] = match.captured(2);
    }
    return found.values();
}

/// The key without the category of a plural form; the same key when it has none.
QString withoutForm(const QString &key) {
    static const QRegularExpression form(u" \\[(zero|one|two|few|many|other)\\]$"_s);
    return QString(key).remove(form);
}

/// Every literal that the sources look up.
QSet<QString> keysInSources() {
    static const QRegularExpression call(
        u"(?:localizedString|localizedFormat|localizedPlural|moverText|LocalizedSentence question|word|setInstallTitle|setCancelTitle)\\(\\s*((?:u?\"(?:[^\"\\\\]|\\\\.)*\"(?:_s)?\\s*)+)|\\? u\"(Quit)\"_s : u\"(Close)\"_s"_s);
    static const QRegularExpression part(u"\"((?:[^\"\\\\]|\\\\.)*)\""_s);
    QSet<QString> keys;
    QDirIterator files(tx::test::sourcesFolder() + u"/../src"_s, {u"*.cpp"_s}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString source = QString::fromUtf8(tx::test::readFile(files.next()));
        for (auto it = call.globalMatch(source); it.hasNext();) {
            const auto match = it.next();
            if (!match.captured(2).isEmpty()) {
                keys << match.captured(2) << match.captured(3);
                continue;
            }
            QString key;
            for (auto parts = part.globalMatch(match.captured(1)); parts.hasNext();)
                key += parts.next().captured(1);
            keys << key.replace(u"\\n"_s, u"\n"_s)
                        .replace(u"\\\""_s, u"\""_s)
                        .replace(u"\\u2026"_s, u"\u2026"_s);
        }
    }
    return keys;
}

TEST(Texts, EveryTextOfTheSourcesIsInTheList) {
    const QHash<QString, QString> list = tableOf(u"en"_s);
    const QSet<QString> keys = keysInSources();
    EXPECT_GT(keys.size(), 60);
    for (const QString &key : keys)
        EXPECT_TRUE(list.contains(key)) << key.toStdString();
    for (auto it = list.begin(); it != list.end(); ++it) {
        EXPECT_TRUE(keys.contains(withoutForm(it.key()))) << "nobody asks for: " << it.key().toStdString();
        const bool isForm = withoutForm(it.key()) != it.key();
        EXPECT_TRUE(isForm || it.key() == it.value()) << it.key().toStdString();
    }
}

TEST(Texts, EveryLanguageHasTheWholeListAndItsOwnPluralForms) {
    const QHash<QString, QString> list = tableOf(u"en"_s);
    for (const QString &language : shipped) {
        const QHash<QString, QString> table = tableOf(language);
        QSet<QString> expected;
        for (auto it = list.begin(); it != list.end(); ++it) {
            const QString key = withoutForm(it.key());
            expected << key;
            for (qint64 count = 0; key != it.key() && count < 1000; ++count) {
                const tx::PluralCategory category = tx::pluralCategory(language, count);
                if (category != tx::PluralCategory::Other) // which the key itself stands for
                    expected << tx::pluralKey(key, category);
            }
        }
        EXPECT_EQ(QSet<QString>(table.keyBegin(), table.keyEnd()), expected) << language.toStdString();
        for (auto it = table.begin(); it != table.end(); ++it) {
            const QString key = withoutForm(it.key());
            const QStringList conversions = conversionsOf(it.value());
            if (key == it.key() || conversions.contains(u"d"_s)) {
                EXPECT_EQ(conversions, conversionsOf(key))
                    << language.toStdString() << ": " << it.key().toStdString();
                continue;
            }
            // A form that one number has says it in words.
            EXPECT_EQ(language, u"ar"_s) << it.key().toStdString();
            QStringList others = conversionsOf(key);
            others.removeAll(u"d"_s);
            EXPECT_EQ(conversions, others) << it.key().toStdString();
        }
    }
}

TEST(Texts, NothingIsWrittenInTheWrongFormOfAddressOrWordsThatMislead) {
    struct Case {
        QString language, pattern, why;
    };
    const Case cases[] = {
        {u"de"_s, u"(?i)\\b(du|dich|dir|dein\\w*)\\b"_s, u"the formal address"_s},
        {u"de"_s,
         u"\\b(Versuche|Suche|Prüfe|Lade|Beende|Installiere|Repariere|Ersetze|aktualisiere) (es|auf|die|sie|bald)\\b"_s,
         u"the formal address"_s},
        {u"de"_s, u"(?<!an)zeigen"_s, u"anzeigen"_s},
        {u"de"_s, u"(?<!herunter)(?<!Herunter)geladen|Update laden|Beim Laden|Geladen"_s, u"herunterladen"_s},
        {u"de"_s, u"(?i)\\bbewegt\\b"_s, u"an application is moved: verschoben"_s},
        {u"de"_s, u"Verschieben Sie sie"_s, u"what was just said to be no application"_s},
        {u"es"_s, u"(?i)\\b(puedes|tienes|quieres|tu|tus)\\b"_s, u"the formal address"_s},
        {u"fr"_s, u"(?i)redémarrer"_s, u"an application is relaunched"_s},
        {u"fr"_s, u"^%@ (ne|n’est) .*(être mise|remplacé)"_s, u"a name has no known gender"_s},
        {u"fr"_s, u"Déplacez-la"_s, u"what was just said to be no application"_s},
        {u"fr"_s, u" [:!?»]|« "_s, u"spaces before these do not break a line"_s},
        {u"pt-BR"_s, u"\\batrás\\b"_s, u"ambiguous"_s},
        {u"ru"_s, u"Пропущено обновлений|отстаёт на версий|её архива"_s, u"ungrammatical"_s},
        {u"pt-BR"_s, u"Faltam? %d"_s, u"missing from what?"_s},
        {u"ru"_s, u"ли оно"_s, u"what is it?"_s},
        {u"ru"_s, u"Исправьте"_s, u"repair is one word everywhere: восстановите"_s},
        {u"ru"_s, u"провер\\w+ обновления"_s, u"it looks whether there are any"_s},
        {u"zh-Hans"_s, u"比已安装的更新"_s, u"reads as \"than the installed update\""_s},
    };
    for (const Case &c : cases) {
        const QHash<QString, QString> table = tableOf(c.language);
        const QRegularExpression pattern(c.pattern, QRegularExpression::UseUnicodePropertiesOption);
        ASSERT_TRUE(pattern.isValid());
        for (auto it = table.begin(); it != table.end(); ++it)
            EXPECT_FALSE(it.value().contains(pattern))
                << c.language.toStdString() << ": " << it.value().toStdString() << " (" << c.why.toStdString()
                << ')';
    }
    EXPECT_EQ(tableOf(u"fr"_s)[u"Restart"_s], u"Relancer"_s);
    EXPECT_EQ(tableOf(u"fr"_s)[u"Install & Relaunch"_s], u"Installer et relancer"_s);
    EXPECT_EQ(tableOf(u"de"_s)[u"Show Update"_s], u"Update anzeigen"_s);
    EXPECT_EQ(tableOf(u"de"_s)[u"Download Update"_s], u"Update herunterladen"_s);
}

TEST(Texts, StateOfEachLanguageIsDocumented) {
    const QString page =
        QString::fromUtf8(tx::test::readFile(tx::test::sourcesFolder() + u"/../docs/translations.md"_s));
    for (const QString &language : shipped + QStringList{u"en"_s}) {
        QStringList categories;
        for (qint64 count = 0; count < 1000; ++count)
            categories << tx::pluralCategoryName(tx::pluralCategory(language, count));
        categories.removeDuplicates();
        const QStringList order{u"zero"_s, u"one"_s, u"two"_s, u"few"_s, u"many"_s, u"other"_s};
        std::sort(categories.begin(), categories.end(), [&order](const QString &a, const QString &b) {
            return order.indexOf(a) < order.indexOf(b);
        });
        const QRegularExpression row(u"\n\\| [^|]* \\| `%1` \\| [^|]* \\| %2 \\| [^|]* \\|\n"_s.arg(
            language, categories.join(u", "_s)));
        EXPECT_TRUE(page.contains(row)) << row.pattern().toStdString();
    }
}

class OwnTexts : public tx::test::UiTest {};

TEST_F(OwnTexts, StandBelowTheHosts) {
    const QString bundle = path(u"Texts.app"_s);
    tx::test::makeBundle(bundle, {});
    const auto text = [&](const QString &key, const QStringList &languages) {
        return tx::localizedString(key, u"Localizable"_s, TXBundle(bundle), languages);
    };
    EXPECT_EQ(text(u"Cancel"_s, {u"de"_s}), u"Abbrechen"_s);
    EXPECT_EQ(text(u"Cancel"_s, {u"de-AT"_s}), u"Abbrechen"_s);
    EXPECT_EQ(text(u"Cancel"_s, {u"en"_s, u"de"_s}), u"Cancel"_s);
    EXPECT_EQ(text(u"Cancel"_s, {u"tlh"_s, u"fr"_s}), u"Annuler"_s);
    EXPECT_EQ(text(u"Cancel"_s, {u"zh-CN"_s}), u"取消"_s);
    EXPECT_EQ(text(u"Cancel"_s, {u"zh-TW"_s}), u"Cancel"_s) << "another script";
    EXPECT_EQ(text(u"Cancel"_s, {u"pt-PT"_s}), u"Cancelar"_s);
    EXPECT_EQ(text(u"Nobody's"_s, {u"de"_s}), u"Nobody's"_s);
    tx::test::writeFile(bundle + u"/Contents/Resources/de.lproj/Localizable.strings"_s,
                        "\"Cancel\" = \"Lieber nicht\";");
    tx::test::makeBundle(path(u"Other.app"_s), {});
    tx::test::writeFile(path(u"Other.app/Contents/Resources/de.lproj/Localizable.strings"_s),
                        "\"Cancel\" = \"Lieber nicht\";");
    EXPECT_EQ(tx::localizedString(u"Cancel"_s, u"Localizable"_s, TXBundle(path(u"Other.app"_s)), {u"de"_s}),
              u"Lieber nicht"_s);
}

TEST_F(OwnTexts, HaveTheFormThatTheLanguageHasForTheNumber) {
    const qint64 numbers[] = {0, 1, 2, 5, 11, 21, 22, 25, 101, 111};
    struct Language {
        QString tag;
        QStringList sentences; ///< one for each number, or one for all that follow
    };
    const QString en = u"You are %1 updates behind!"_s;
    const QString de = u"Ihnen fehlen %1 Updates!"_s;
    const QString es = u"¡Le faltan %1 actualizaciones!"_s;
    const QString fr = u"Vous avez %1 mise à jour de retard\u00A0!"_s;
    const QString pt = u"Há %1 atualização que você ainda não instalou!"_s;
    const QString one = u"Вы пропустили %1 обновление!"_s;
    const QString few = u"Вы пропустили %1 обновления!"_s;
    const QString many = u"Вы пропустили %1 обновлений!"_s;
    const QString manyArabic = u"فاتك %1 تحديثًا!"_s;
    const Language languages[] = {
        {u"en"_s, {en, u"You are %1 update behind!"_s, en}},
        {u"de"_s, {de, u"Ihnen fehlt %1 Update!"_s, de}},
        {u"de-CH"_s, {de, u"Ihnen fehlt %1 Update!"_s, de}},
        {u"es"_s, {es, u"¡Le falta %1 actualización!"_s, es}},
        {u"fr"_s, {fr, fr, u"Vous avez %1 mises à jour de retard\u00A0!"_s}},
        {u"pt-BR"_s, {pt, pt, u"Há %1 atualizações que você ainda não instalou!"_s}},
        {u"ja"_s, {u"%1件のアップデートが未適用です。"_s}},
        {u"zh-Hans"_s, {u"您有 %1 个更新尚未安装！"_s}},
        {u"zh-CN"_s, {u"您有 %1 个更新尚未安装！"_s}},
        {u"ru"_s, {many, one, few, many, many, one, few, many, one, many}},
        {u"ar"_s,
         {u"لم يفتك أي تحديث!"_s, u"فاتك تحديث واحد!"_s, u"فاتك تحديثان!"_s, u"فاتتك %1 تحديثات!"_s,
          manyArabic, manyArabic, manyArabic, manyArabic, u"فاتك %1 تحديث!"_s, manyArabic}},
    };
    for (const Language &language : languages) {
        tx::services().preferredLanguages = [&] { return QStringList{language.tag}; };
        for (qsizetype i = 0; i < qsizetype(std::size(numbers)); ++i) {
            const QString number = QString::number(numbers[i]);
            const QString expected = language.sentences[std::min(i, language.sentences.size() - 1)];
            EXPECT_EQ(tx::localizedPlural(u"You are %d updates behind!"_s, numbers[i], {number}),
                      QString(expected).replace(u"%1"_s, number))
                << language.tag.toStdString();
        }
    }
}

TEST_F(OwnTexts, PanelCountsVersionsInTheUsersLanguage) {
    struct Case {
        QString language;
        qsizetype count;
        QString label, warning;
    };
    for (const Case &c : {Case{u"ru"_s, 2, u"Вы пропустили 2 обновления!"_s, {}},
                          Case{u"ru"_s, 5, u"Вы пропустили 5 обновлений!"_s, u"отстаёт на 5 версий."_s},
                          Case{u"ru"_s, 21, u"Вы пропустили 21 обновление!"_s, u"отстаёт на 21 версию."_s},
                          Case{u"ar"_s, 11, u"فاتك 11 تحديثًا!"_s, u"متأخر بمقدار 11 إصدارًا."_s}}) {
        tx::services().preferredLanguages = [&] { return QStringList{c.language}; };
        QList<TXUpdatePtr> updates;
        for (qsizetype i = 0; i < c.count; ++i) {
            updates << std::make_shared<TXUpdate>();
            updates.last()->setVersion(QString::number(2000 + i));
            updates.last()->setDisplayVersion(u"2.%1"_s.arg(i));
            updates.last()->setFileURL(QUrl(u"https://e.org/a.zip"_s));
        }
        const std::shared_ptr<TXUpdatePanel> panel = TXUpdatePanel::panel();
        ASSERT_TRUE(panel);
        alerts.clear();
        panel->setUpdatesAndDesignatedUpdate(updates, updates.first());
        EXPECT_EQ(panel->findChild<QLabel *>(u"secondaryField"_s)->text(), c.label);
        panel->cancel();
        ASSERT_EQ(alerts.size(), c.count >= 5 ? 1 : 0);
        for (const tx::Alert &alert : std::as_const(alerts))
            EXPECT_TRUE(alert.informative.contains(c.warning)) << alert.informative.toStdString();
    }
}

} // namespace
