// SPDX-License-Identifier: MIT
#include "os/creationmask.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace tx {

std::optional<unsigned> fileCreationMask() {
    QFile file(u"/proc/self/status"_s);
    const QByteArray status = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    for (const QByteArray &line : status.split('\n')) {
        bool isNumber = false;
        const unsigned mask = line.startsWith("Umask:") ? line.mid(6).trimmed().toUInt(&isNumber, 8) : 0;
        if (isNumber)
            return mask;
    }
    return std::nullopt;
}

} // namespace tx
