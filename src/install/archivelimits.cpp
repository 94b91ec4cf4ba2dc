// SPDX-License-Identifier: MIT
#include "install/archivelimits.h"

#include "model/settings.h"

using namespace Qt::StringLiterals;

namespace tx {

ArchiveLimits archiveLimits() {
    const ArchiveLimits usual;
    return {hostLimit(u"TXUpdateMaximumArchiveSize"_s, usual.archive),
            hostLimit(u"TXUpdateMaximumUnpackedSize"_s, usual.unpacked),
            hostLimit(u"TXUpdateMinimumDownloadRate"_s, usual.rate)};
}

} // namespace tx
