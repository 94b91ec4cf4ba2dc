// SPDX-License-Identifier: MIT
#pragma once

#include "net/urlloading.h"

namespace tx {

/// An error for an address that cannot be loaded: invalid, or neither http nor https.
TXError checkAddress(const QUrl &url);

/// Starts a transfer into a file on the network thread; see UrlLoader::startDownload.
std::unique_ptr<UrlDownload> startDownload(const UrlRequest &request, UrlDownloadDelegate &delegate);

/// The name that a server suggests: the file name of a Content-Disposition header, else the last component of
/// the address, else "Unknown".
[[nodiscard]] QString suggestedFilename(const QByteArray &contentDisposition, const QUrl &url);

} // namespace tx
