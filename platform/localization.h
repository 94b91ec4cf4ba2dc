// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>

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

} // namespace tx
