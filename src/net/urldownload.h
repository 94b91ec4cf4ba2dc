// SPDX-License-Identifier: MIT
#pragma once

#include "net/urlloading.h"

namespace tx {

/// Returns an error for a URL that cannot be loaded: an invalid one, or one that is neither http nor https.
TXError checkAddress(const QUrl &url);

/// Starts a transfer into a file on the network thread; see UrlLoader::startDownload.
std::unique_ptr<UrlDownload> startDownload(const UrlRequest &request, UrlDownloadDelegate &delegate);

/// Returns the file name that a server suggests: that of a Content-Disposition header, otherwise the last
/// component of the URL, otherwise "Unknown".
[[nodiscard]] QString suggestedFilename(const QByteArray &contentDisposition, const QUrl &url);

} // namespace tx
