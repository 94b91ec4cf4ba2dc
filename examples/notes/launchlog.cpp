// SPDX-License-Identifier: MIT
#include "launchlog.h"

#include <QDateTime>
#include <QFile>

void recordLine(const QString &line) {
    QFile log(qEnvironmentVariable("TARVIX_NOTES_LAUNCH_LOG"));
    if (log.fileName().isEmpty() || !log.open(QIODevice::Append))
        return;
    log.write(QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + ' ' + line.toUtf8() + '\n');
}
