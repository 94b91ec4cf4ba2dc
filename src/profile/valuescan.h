// SPDX-License-Identifier: MIT
#pragma once

#include <QVariant>

#include <optional>

namespace tx {

/// Parses the integer at the start of a string, after white space and within the range of 64 bits; 0 if there
/// is none. A number is truncated to an integer. 0 for all other types. Thread: any.
[[nodiscard]] qint64 integerValue(const QVariant &value);

/// A number with its unit, such as "16 GB": the whole number, times 1024 when the rest of the line begins
/// with "g". Absent without a number, or without anything after it. A fraction belongs to the rest: "2.4 GHz"
/// is 2.
[[nodiscard]] std::optional<quint64> scanWithUnit(const QString &text);

} // namespace tx
