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

/// The same with everything given. English needs no table: a user who prefers it gets the key.
[[nodiscard]] QString localizedString(const QString &key, const QString &table, const TXBundle &bundle,
                                      const QStringList &languages);

/// The localized format filled with `arguments`.
[[nodiscard]] QString localizedFormat(const QString &key, const QStringList &arguments);

/// The same for a text about `count` things, which is one of the arguments, in the form that the language has
/// for that number. Tables hold a form under the key and the name of CLDR's category, "You are %d updates
/// behind! [few]"; the key alone is for all other numbers.
[[nodiscard]] QString localizedPlural(const QString &key, qint64 count, const QStringList &arguments);

/// A localized sentence and words that are put into it. Words are declined for the sentence that they go
/// into, so all come from the same table or translator; what that does not have stays English. Thread: any.
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
