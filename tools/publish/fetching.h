// SPDX-License-Identifier: MIT
#pragma once

#include "publish/progress.h"
#include "trust/digest.h"
#include "trust/fault.h"

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
[[nodiscard]] trust::Verdict fetchFile(const QUrl &url, const QString &path, qint64 most, Progress &progress);
/// Returns the size and digest of the file at `url`. Downloads it to `scratch`, which is removed.
trust::Outcome<FetchedFile> fetchDigest(const QUrl &url, const QString &scratch, qint64 most,
                                        Progress &progress);

/// Returns the same for a local file.
trust::Outcome<FetchedFile> digestOfFile(const QString &path, Progress &progress);

struct FetchedPage {
    QByteArray content;
    QByteArray type; ///< Content-Type of the response
};
trust::Outcome<FetchedPage> fetchPage(const QUrl &url);

/// Checks that files can be published under a URL: it must be https, or http on this machine. Fault: Input.
[[nodiscard]] trust::Verdict checkPublicUrl(const QUrl &url, const QString &what);

} // namespace tx::publishing
