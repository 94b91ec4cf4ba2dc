// SPDX-License-Identifier: MIT
#pragma once

#include <QUrl>

namespace tx {

/// Who wants an address to be opened.
enum class OpenedBy {
    User, ///< who clicked on the link or button that leads there
    Feed, ///< a feed or a page, on its own
};

/// Opens an address that came from a feed or a page in the program that the user prefers for it. All of the
/// framework opens such addresses here and nowhere else. Web addresses (http and https with a host) are
/// opened for both, mail addresses (mailto) only for the user, and with nothing but recipients, subject and
/// text: attachments could name files of this machine. Everything else, as files, shares and other programs'
/// schemes, is refused and logged. False when it is refused or cannot be opened. Thread: main.
bool openAddress(const QUrl &url, OpenedBy openedBy);

} // namespace tx
