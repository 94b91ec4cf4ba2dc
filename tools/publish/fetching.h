// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "net/urlloading.h"
#include "publish/faults.h"
#include "publish/progress.h"
#include "trust/digest.h"

#include <QByteArray>
#include <QUrl>

namespace tx::publishing {

/// The response of a server to a GET request as applications send it: over https, or from this machine. Runs
/// an event loop. Faults: File, with the URL and the reason, also for any status other than 200.
struct FetchedFile {
    quint64 size = 0;
    trust::Digest digest{};
};
/// Downloads the file at `url` to a path. `most` is the largest size in bytes; a longer file is a fault.
[[nodiscard]] Verdict fetchFile(const QUrl &url, const QString &path, qint64 most, Progress &progress);
/// Returns the size and digest of the file at `url`. Downloads it to `scratch`, which is removed.
Outcome<FetchedFile> fetchDigest(const QUrl &url, const QString &scratch, qint64 most, Progress &progress);

/// Returns the same for a local file.
Outcome<FetchedFile> digestOfFile(const QString &path, Progress &progress);

/// Sends the request and runs an event loop until the response is complete. Any status is a success.
Result<UrlResponse> loadAndWait(const UrlRequest &request);

struct FetchedPage {
    QByteArray content;
    QByteArray type; ///< Content-Type of the response
};
Outcome<FetchedPage> fetchPage(const QUrl &url);

/// Checks that files can be published under a URL: it must be https, or http on this machine. Fault: Input.
[[nodiscard]] Verdict checkPublicUrl(const QUrl &url, const QString &what);

} // namespace tx::publishing
