// SPDX-License-Identifier: MIT
#pragma once

#include <QVariantMap>

namespace tx {

/// A text as the record of handled posts holds it. The settings are an XML file: a text with characters that
/// XML cannot hold (control characters, halves of surrogate pairs, U+FFFE, U+FFFF) or would read as another
/// one (carriage return) begins with "escaped:" there, with "%HHHH" for each such character and for "%". A
/// text that begins with that word itself is escaped as well, so different texts stay different. Every other
/// text is stored as it is. Thread: any.
[[nodiscard]] QString recordForm(const QString &text);

/// The same for the texts of a post's identifier.
[[nodiscard]] QVariantMap recordForm(const QVariantMap &identifier);

} // namespace tx
