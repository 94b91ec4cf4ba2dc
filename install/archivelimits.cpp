// SPDX-License-Identifier: MIT
#include "install/archivelimits.h"

#include <TarvixUpdate/TXUpdateHost.h>

using namespace Qt::StringLiterals;

namespace tx {

ArchiveLimits archiveLimits() {
    const QVariantMap info = TXUpdateHost::host()->bundle().infoDictionary();
    ArchiveLimits limits;
    const auto replace = [&info](const QString &key, qint64 &limit) {
        bool isNumber = false;
        const qint64 number = info.value(key).toLongLong(&isNumber);
        if (isNumber && number > 0)
            limit = number;
    };
    replace(u"TXUpdateMaximumArchiveSize"_s, limits.archive);
    replace(u"TXUpdateMaximumUnpackedSize"_s, limits.unpacked);
    return limits;
}

} // namespace tx
