// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class QDateTime;

namespace tx {

/// The date without a time in the locale's middle length, such as "Nov 1, 2026", in the calendar that is used
/// there; empty for an invalid one. Thread: main.
[[nodiscard]] QString mediumDate(const QDateTime &date);

} // namespace tx
