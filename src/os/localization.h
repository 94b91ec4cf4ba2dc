// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>

#include <QHash>
#include <QStringList>

namespace tx {

/// The text for an English key, in the user's language: from `<language>.lproj/<table>.strings` of the main
/// bundle, then from the application's Qt translators (context "TarvixUpdate"), then from the framework's own
/// `<language>.lproj/TarvixUpdate.strings`, then the key itself.
/// Thread: any.
[[nodiscard]] QString localizedString(const QString &key,
                                      const QString &table = QStringLiteral("Localizable"));

/// As above with explicit arguments. English needs no table: users who prefer English get the key.
[[nodiscard]] QString localizedString(const QString &key, const QString &table, const TXBundle &bundle,
                                      const QStringList &languages);

/// The localized format filled with `arguments`.
[[nodiscard]] QString localizedFormat(const QString &key, const QStringList &arguments);

/// Localizes a string about `count` things in the plural form that the language uses for that number; the
/// number is one of the arguments. A table has a form under the key and CLDR's category name, such as "You
/// are %d updates behind! [few]". The key alone is the form for all other numbers.
[[nodiscard]] QString localizedPlural(const QString &key, qint64 count, const QStringList &arguments);

/// A localized sentence and the words that are inserted into it. Words are inflected for their sentence, so
/// all of them come from the same table or translator. What it lacks stays in English. Thread: any.
class LocalizedSentence {
public:
    explicit LocalizedSentence(const QString &key, const QString &table = QStringLiteral("Localizable"));

    /// The sentence, filled with `arguments`.
    [[nodiscard]] QString filledWith(const QStringList &arguments) const;
    /// A word from where the sentence comes from, else `key`.
    [[nodiscard]] QString word(const QString &key) const;

private:
    QString m_text;
    const QHash<QString, QString> *m_table = nullptr; ///< kept for the life of the process
    bool m_isTranslators = false;
};

} // namespace tx
