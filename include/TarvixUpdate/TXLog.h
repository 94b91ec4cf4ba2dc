// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QStringList>

/// Makes Qt know the names of the enumerators, for logs and scripts. Its members belong to the global
/// namespace, too.
inline namespace TXLogEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Levels of the framework's log.
enum TXLogLevel : int {
    TXLogLevelAlways = 0,  ///< logged at every level
    TXLogLevelFailure = 1, ///< something that the user asked for did not work
    TXLogLevelNotice = 4,  ///< something unusual that the framework handled by itself
    TXLogLevelStep = 5,    ///< a step of download, unarchiving, installation or relaunch
    TXLogLevelDetail = 6,  ///< detail for people who debug a feed
};
Q_ENUM_NS(TXLogLevel)

} // namespace TXLogEnumerations

/// Writes one line to Qt's message handler, category "tarvixupdate", when `level` is at most TXLogGetLevel()
/// or a rule of QT_LOGGING_RULES asks for it: "tarvixupdate.info=true" for the levels up to 5,
/// "tarvixupdate.debug=true" for 6. "tarvixupdate.warning=false" silences failures, too. `format` holds the
/// conversions %@, %s, %d, %ld and %lu, filled in order with `arguments`. Thread: any.
TX_EXPORT void TXLog(int level, const QString &format, const QStringList &arguments = {});

/// The level from the environment variable TXUPDATE_LOG_LEVEL, read once; 1 if it is absent or not a number.
[[nodiscard]] TX_EXPORT int TXLogGetLevel();
