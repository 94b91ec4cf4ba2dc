// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

namespace tx {

/// The forms that a language may have for a number of things, as the Unicode Common Locale Data Repository
/// (CLDR) calls them.
enum class PluralCategory { Zero, One, Two, Few, Many, Other };

/// Which of its forms a language uses for `count` things, by CLDR's cardinal rules for whole numbers. A
/// language that is not known has the forms One, for 1, and Other. `language`: a tag such as "ru" or "pt-BR".
/// Thread: any.
[[nodiscard]] PluralCategory pluralCategory(const QString &language, qint64 count);

/// "zero", "one", "two", "few", "many" or "other".
[[nodiscard]] QString pluralCategoryName(PluralCategory category);

/// The key in a strings table under which a form of `key` is: "You are %d updates behind! [few]".
[[nodiscard]] QString pluralKey(const QString &key, PluralCategory category);

} // namespace tx
