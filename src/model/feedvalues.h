// SPDX-License-Identifier: MIT
#pragma once

#include <QSizeF>
#include <QString>
#include <QUrl>

#include <string_view>

namespace tx {

/// An address as feeds write it: blanks at the ends are dropped, others and non-ASCII characters are
/// percent-encoded. An empty URL for a null text, one that is no URL and one longer than 64 KiB, which no
/// server would take and which would be there many times while it is taken apart. Thread: any.
[[nodiscard]] QUrl urlFromFeedText(const QString &text);
[[nodiscard]] QUrl urlFromFeedText(std::string_view text);

/// The same in percent-encoded form, from UTF-8; empty for none. Plain http addresses, as nearly all are, are
/// taken as they stand without being taken apart.
[[nodiscard]] QByteArray encodedUrlFromFeedText(std::string_view text);

/// True when `encodedUrlFromFeedText` has an answer for the text.
[[nodiscard]] bool isFeedAddress(std::string_view text);

/// "{640, 480}" as a size; the zero size for any other form and for a text longer than 1,000 characters.
/// Thread: any.
[[nodiscard]] QSizeF sizeFromFeedText(const QString &text);

} // namespace tx
