// SPDX-License-Identifier: MIT
// The list of texts is complete, and every language has all of it.
#include "platform/localization.h"
#include "platform/stringstable.h"
#include "tests/ui/uitest.h"

#include <QDirIterator>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

const QStringList shipped{u"ar"_s, u"de"_s, u"es"_s, u"fr"_s, u"ja"_s, u"pt-BR"_s, u"ru"_s, u"zh-Hans"_s};

QHash<QString, QString> tableOf(const QString &language) {
    const auto table = tx::readStringsTable(tx::test::readFile(
        QStringLiteral(TEST_RESOURCES) + u"/%1.lproj/TarvixUpdate.strings"_s.arg(language)));
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

/// Every literal that the sources look up.
QSet<QString> keysInSources() {
    static const QRegularExpression call(
        u"(?:localizedString|localizedFormat|moverText|setInstallTitle|setCancelTitle)\\(\\s*((?:u?\"(?:[^\"\\\\]|\\\\.)*\"(?:_s)?\\s*)+)|\\? u\"(Quit)\"_s : u\"(Close)\"_s"_s);
    static const QRegularExpression part(u"\"((?:[^\"\\\\]|\\\\.)*)\""_s);
    QSet<QString> keys;
    for (const QString &folder : {u"core"_s, u"feed"_s, u"install"_s, u"mover"_s, u"ui"_s}) {
        QDirIterator files(QStringLiteral(TEST_SOURCES) + u"/../"_s + folder, {u"*.cpp"_s}, QDir::Files,
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
        EXPECT_TRUE(keys.contains(it.key())) << "nobody asks for: " << it.key().toStdString();
        EXPECT_EQ(it.key(), it.value());
    }
}

TEST(Texts, EveryLanguageHasTheWholeList) {
    const QHash<QString, QString> list = tableOf(u"en"_s);
    for (const QString &language : shipped) {
        const QHash<QString, QString> table = tableOf(language);
        EXPECT_EQ(table.size(), list.size()) << language.toStdString();
        for (auto it = list.begin(); it != list.end(); ++it) {
            ASSERT_TRUE(table.contains(it.key())) << language.toStdString() << ": " << it.key().toStdString();
            EXPECT_EQ(conversionsOf(table[it.key()]), conversionsOf(it.key()))
                << language.toStdString() << ": " << it.key().toStdString();
        }
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

} // namespace
