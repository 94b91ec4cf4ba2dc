// SPDX-License-Identifier: MIT
#pragma once

#include <QSizeF>
#include <QString>
#include <QUrl>

#include <string_view>

namespace tx {

/// Parses a URL as feeds contain it: blanks at the ends are removed, other blanks and non-ASCII characters
/// are percent-encoded. Returns an empty URL for a null string, an invalid URL, and one longer than 64 KiB.
/// No server accepts such a long URL, and parsing it would take many times its memory. Thread: any.
[[nodiscard]] QUrl urlFromFeedText(const QString &text);
[[nodiscard]] QUrl urlFromFeedText(std::string_view text);

/// As above, from UTF-8 to percent-encoded form; empty for an invalid URL. Plain http URLs, which are the
/// usual case, are returned unchanged and without parsing.
[[nodiscard]] QByteArray encodedUrlFromFeedText(std::string_view text);

/// True when `encodedUrlFromFeedText` has an answer for the text.
[[nodiscard]] bool isFeedAddress(std::string_view text);

/// "{640, 480}" as a size; the zero size for any other form and for a text longer than 1,000 characters.
/// Thread: any.
[[nodiscard]] QSizeF sizeFromFeedText(const QString &text);

} // namespace tx
