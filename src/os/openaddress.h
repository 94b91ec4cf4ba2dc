// SPDX-License-Identifier: MIT
#pragma once

#include <QUrl>

namespace tx {

/// Who wants to open a URL.
enum class OpenedBy {
    User, ///< who clicked on a link or button
    Feed, ///< a feed or a page, on its own
};

/// Opens a URL from a feed or a page in the user's preferred program. The framework opens such URLs only
/// through this function. Web URLs (http and https with a host) are always opened. Mail URLs (mailto) are
/// opened only for the user, and only with recipients, subject and text, because attachments could name files
/// on this machine. All others, such as files, shares and other programs' schemes, are refused and logged.
/// Returns false if the URL is refused or cannot be opened. Thread: main.
bool openAddress(const QUrl &url, OpenedBy openedBy);

} // namespace tx
