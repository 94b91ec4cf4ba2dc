// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QStringView>

#include <string_view>

namespace tx {

/// Reads "yyyy-MM-dd HH:mm:ss" as US Pacific time; invalid for any other form or a day that does not exist.
/// Thread: any.
[[nodiscard]] QDateTime itemDateFromString(QStringView text);
/// The same from UTF-8, without a copy of a long text.
[[nodiscard]] QDateTime itemDateFromUtf8(std::string_view text);

/// The same form in US Pacific time.
[[nodiscard]] QString itemDateToString(const QDateTime &date);

/// What is used where the system has no zone database: US Pacific time by its rules since 2007, from the
/// second Sunday of March to the first of November. Older dates come out an hour wrong in the weeks that were
/// different. Invalid for the hour that is left out; the hour that comes twice is the second one.
[[nodiscard]] QDateTime pacificTimeByRule(QDate day, QTime time);
/// Seconds east of UTC by the same rules.
[[nodiscard]] int pacificOffsetByRule(const QDateTime &date);

} // namespace tx
