// SPDX-License-Identifier: MIT
#pragma once

#include <QVariant>

#include <optional>

namespace tx {

/// The whole number at the beginning of a text after white space, within the bounds of 64 bits; 0 without
/// one. A number's own value, cut to a whole one; 0 for what is no number. Thread: any.
[[nodiscard]] qint64 integerValue(const QVariant &value);

/// A number with its unit, such as "16 GB": the whole number, times 1024 when the rest of the line begins
/// with "g". Absent without a number, or without anything after it. A fraction belongs to the rest: "2.4 GHz"
/// is 2.
[[nodiscard]] std::optional<quint64> scanWithUnit(const QString &text);

} // namespace tx
