// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace tx {

/// How many bytes an update may take, and how slowly it may come. A host application sets others by numbers
/// in its Info.plist, "TXUpdateMaximumArchiveSize", "TXUpdateMaximumUnpackedSize" and
/// "TXUpdateMinimumDownloadRate". Thread: any.
struct ArchiveLimits {
    qint64 archive = qint64(4) << 30;  ///< the archive as it is stored
    qint64 unpacked = qint64(8) << 30; ///< what comes out of it
    qint64 rate = 1024;                ///< least bytes a second of a download, on average over 60 s
};

/// The limits of the host application.
[[nodiscard]] ArchiveLimits archiveLimits();

} // namespace tx
