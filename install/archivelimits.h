// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace tx {

/// How many bytes an update may take. Host applications that are larger raise the limits by numbers in their
/// Info.plist, "TXUpdateMaximumArchiveSize" and "TXUpdateMaximumUnpackedSize". Thread: any.
struct ArchiveLimits {
    qint64 archive = qint64(4) << 30;  ///< the archive as it is stored
    qint64 unpacked = qint64(8) << 30; ///< what comes out of it
};

/// The limits of the host application.
[[nodiscard]] ArchiveLimits archiveLimits();

} // namespace tx
