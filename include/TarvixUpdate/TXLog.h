// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QStringList>

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXLogEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Levels of the framework's log.
enum TXLogLevel : int {
    TXLogLevelAlways = 0,  ///< logged at every level
    TXLogLevelFailure = 1, ///< something that the user asked for did not work
    TXLogLevelNotice = 4,  ///< something unusual that the framework could handle
    TXLogLevelStep = 5,    ///< a step of download, unarchiving, installation or relaunch
    TXLogLevelDetail = 6,  ///< detail for people who debug a feed
};
Q_ENUM_NS(TXLogLevel)

} // namespace TXLogEnumerations

/// Writes one line to Qt's message handler in the category "tarvixupdate". The line is written if `level` is
/// at most TXLogGetLevel(), or if a rule in QT_LOGGING_RULES enables it: "tarvixupdate.info=true" enables the
/// levels up to 5, "tarvixupdate.debug=true" enables 6. "tarvixupdate.warning=false" also disables failures.
/// `format` may contain the conversions %@, %s, %d, %ld and %lu; `arguments` replace them in order. Thread:
/// any.
TX_EXPORT void TXLog(int level, const QString &format, const QStringList &arguments = {});

/// The level from the environment variable TXUPDATE_LOG_LEVEL, read once; 1 if it is absent or not a number.
[[nodiscard]] TX_EXPORT int TXLogGetLevel();
