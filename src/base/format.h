// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace tx {

/// Fills the conversions of `format` (%@, %s, %d, %i, %u, %ld, %lu, and the positional %1$@) with the texts
/// of `arguments`; %% is a percent sign. A conversion without an argument reads "(null)", like a null
/// argument. Positional conversions let a translation change the order.
[[nodiscard]] QString formatText(const QString &format, const QStringList &arguments);

/// `text` for a place between single quotes of a shell's command: a quote in it ends the quoted text, stands
/// for itself and begins the next one.
[[nodiscard]] QString insideSingleQuotes(const QString &text);

} // namespace tx
