// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QStringView>

#include <string_view>

namespace tx {

/// Reads "yyyy-MM-dd HH:mm:ss" as US Pacific time; invalid for any other form or a day that does not exist.
/// Thread: any.
[[nodiscard]] QDateTime itemDateFromString(QStringView text);
/// As above from UTF-8, without copying a long string.
[[nodiscard]] QDateTime itemDateFromUtf8(std::string_view text);

/// Formats a date in this form in US Pacific time.
[[nodiscard]] QString itemDateToString(const QDateTime &date);

/// Converts without a zone database: US Pacific time by the rules since 2007, with daylight saving time from
/// the second Sunday of March to the first of November. Older dates are wrong by one hour in weeks with
/// different rules. Invalid for the skipped hour; the repeated hour is the second one.
[[nodiscard]] QDateTime pacificTimeByRule(QDate day, QTime time);
/// Seconds east of UTC by the same rules.
[[nodiscard]] int pacificOffsetByRule(const QDateTime &date);

} // namespace tx
