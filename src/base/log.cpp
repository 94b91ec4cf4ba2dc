// SPDX-License-Identifier: MIT
#include "base/log.h"

#include "base/format.h"

#include <QLoggingCategory>

namespace {

const QLoggingCategory &category() {
    // Never destroyed, because a thread may run longer than static objects exist. Lines that are not failures
    // are off by default.
    static const auto &instance = *new QLoggingCategory("tarvixupdate", QtWarningMsg);
    return instance;
}

QtMsgType typeOf(int level) {
    return level <= TXLogLevelFailure ? QtWarningMsg : level <= TXLogLevelStep ? QtInfoMsg : QtDebugMsg;
}

} // namespace

namespace tx {

// TXUPDATE_LOG_LEVEL or Qt's logging rules ask for a line. A failure is written unless a rule says no.
bool isLogged(int level) {
    const QtMsgType type = typeOf(level);
    return level <= TXLogLevelDetail &&
           (category().isEnabled(type) || (type != QtWarningMsg && level <= TXLogGetLevel()));
}

} // namespace tx

int TXLogGetLevel() {
    static const int level = [] {
        bool ok = false;
        const int value = qEnvironmentVariableIntValue("TXUPDATE_LOG_LEVEL", &ok);
        return ok ? value : int(TXLogLevelFailure);
    }();
    return level;
}

void TXLog(int level, const QString &format, const QStringList &arguments) {
    if (!tx::isLogged(level))
        return;
    // Passes the category's name. With the category itself, Qt would consult only the logging rules.
    const QMessageLogger logger(nullptr, 0, nullptr, category().categoryName());
    const QString line = tx::formatText(format, arguments);
    const QtMsgType type = typeOf(level);
    if (type == QtWarningMsg)
        logger.warning().noquote() << line;
    else if (type == QtInfoMsg)
        logger.info().noquote() << line;
    else
        logger.debug().noquote() << line;
}
