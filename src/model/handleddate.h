// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>

namespace tx {

/// Reads "yyyy-MM-dd'T'HH:mm:ssZ", the zone as "+0100": the dates of the record of handled posts. Invalid for
/// any other form, the one of feeds among them. Thread: any.
[[nodiscard]] QDateTime handledPostDate(const QString &text);

/// Formats a date in this form in the user's time zone; null for an invalid date. Thread: any.
[[nodiscard]] QString handledPostDateText(const QDateTime &date);

} // namespace tx
