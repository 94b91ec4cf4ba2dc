// SPDX-License-Identifier: MIT
#pragma once

#include <QVariantMap>

namespace tx {

/// Encodes a string for the record of handled posts. The settings are an XML file, so some characters must be
/// escaped: those that XML cannot contain (control characters, unpaired surrogates, U+FFFE, U+FFFF) and those
/// that XML changes (carriage return). An escaped string begins with "escaped:", and "%HHHH" replaces each
/// such character and each "%". A string that itself begins with "escaped:" is escaped as well, so that
/// different strings stay different. Every other string is stored unchanged. Thread: any.
[[nodiscard]] QString recordForm(const QString &text);

/// Encodes all strings of a post's identifier.
[[nodiscard]] QVariantMap recordForm(const QVariantMap &identifier);

} // namespace tx
