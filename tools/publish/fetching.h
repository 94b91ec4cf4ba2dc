// SPDX-License-Identifier: MIT
#pragma once

#include "publish/progress.h"
#include "trust/digest.h"
#include "trust/fault.h"

#include <QByteArray>
#include <QUrl>

namespace tx::publishing {

/// What a server answers to a GET, as applications ask it: over https, or from this machine. Runs an event
/// loop. Faults: File, with the URL and the reason, also for any status but 200.
struct FetchedFile {
    quint64 size = 0;
    trust::Digest digest{};
};
/// The file at `url`, to a path. `most`: bytes; a longer one is a fault.
[[nodiscard]] trust::Verdict fetchFile(const QUrl &url, const QString &path, qint64 most, Progress &progress);
/// What it is, by way of a file at `scratch`, which is removed.
trust::Outcome<FetchedFile> fetchDigest(const QUrl &url, const QString &scratch, qint64 most,
                                        Progress &progress);

/// The same of a local file.
trust::Outcome<FetchedFile> digestOfFile(const QString &path, Progress &progress);

struct FetchedPage {
    QByteArray content;
    QByteArray type; ///< its Content-Type
};
trust::Outcome<FetchedPage> fetchPage(const QUrl &url);

/// A URL under which files can be published: https, or http on this machine alone. Fault: Input.
[[nodiscard]] trust::Verdict checkPublicUrl(const QUrl &url, const QString &what);

} // namespace tx::publishing
