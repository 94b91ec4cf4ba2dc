// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXLog.h>

#include "base/format.h"

#include <QLoggingCategory>

namespace {

const QLoggingCategory &category() {
    // Never destroyed: a thread may outlast static objects.
    static const auto &instance = *new QLoggingCategory("tarvixupdate", QtDebugMsg);
    return instance;
}

} // namespace

int TXLogGetLevel() {
    static const int level = [] {
        bool ok = false;
        const int value = qEnvironmentVariableIntValue("TXUPDATE_LOG_LEVEL", &ok);
        return ok ? value : int(TXLogLevelFailure);
    }();
    return level;
}

void TXLog(int level, const QString &format, const QStringList &arguments) {
    if (level > TXLogGetLevel())
        return;
    const QString line = tx::formatText(format, arguments);
    if (level <= TXLogLevelFailure)
        qCWarning(category).noquote() << line;
    else if (level <= TXLogLevelStep)
        qCInfo(category).noquote() << line;
    else
        qCDebug(category).noquote() << line;
}
