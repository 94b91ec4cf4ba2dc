// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// `text` as a file name that stays in its folder: separators and control characters become "-".
[[nodiscard]] QString safeFileName(const QString &text);

/// `name` cut to what a file system takes (255 bytes), the extension kept and no character cut in two.
[[nodiscard]] QString shortenedFileName(const QString &stem, const QString &tail);

/// Domain of the errors of feed, download, unarchiving and installer client.
extern const QString updaterErrorDomain;

} // namespace tx
