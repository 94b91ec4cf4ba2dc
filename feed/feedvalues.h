// SPDX-License-Identifier: MIT
#pragma once

#include <QSizeF>
#include <QString>
#include <QUrl>

namespace tx {

/// An address as feeds write it: blanks at the ends are dropped, others and non-ASCII characters are
/// percent-encoded. An empty URL for a null text or one that is no URL. Thread: any.
[[nodiscard]] QUrl urlFromFeedText(const QString &text);

/// "{640, 480}" as a size; the zero size for any other form. Thread: any.
[[nodiscard]] QSizeF sizeFromFeedText(const QString &text);

} // namespace tx
