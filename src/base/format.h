// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace tx {

/// Replaces the conversions in `format` (%@, %s, %d, %i, %u, %ld, %lu, and positional ones such as %1$@) with
/// `arguments`. %% is a percent sign. A conversion without an argument, or with a null argument, becomes
/// "(null)". Positional conversions let a translation change the order.
[[nodiscard]] QString formatText(const QString &format, const QStringList &arguments);

/// Escapes `text` for use between single quotes in a shell command: each quote closes the quoted string, is
/// added escaped, and opens the next one.
[[nodiscard]] QString insideSingleQuotes(const QString &text);

} // namespace tx
