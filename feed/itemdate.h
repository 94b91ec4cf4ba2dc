// SPDX-License-Identifier: MIT
#pragma once

#include <QDateTime>
#include <QStringView>

namespace tx {

/// Reads "yyyy-MM-dd HH:mm:ss" as US Pacific time; invalid for any other form or a day that does not exist.
/// Thread: any.
[[nodiscard]] QDateTime itemDateFromString(QStringView text);

/// The same form in US Pacific time.
[[nodiscard]] QString itemDateToString(const QDateTime &date);

} // namespace tx
