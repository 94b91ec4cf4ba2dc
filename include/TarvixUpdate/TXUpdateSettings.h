// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QString>

// Keys of the settings in the application's user defaults. An absent key reads as false, 0 or null.
TX_EXPORT extern const QString TXUpdatePrefUpdateCheckIntervalKey;           ///< double, seconds
TX_EXPORT extern const QString TXUpdatePrefAutomaticallyChecksForUpdatesKey; ///< bool
TX_EXPORT extern const QString TXUpdatePrefAutomaticallyDownloadsUpdatesKey; ///< bool
TX_EXPORT extern const QString TXUpdatePrefSendsSystemProfileKey;            ///< bool
TX_EXPORT extern const QString TXUpdatePrefFeedURLKey;                       ///< string
TX_EXPORT extern const QString TXUpdatePrefLastUpdateCheckDateKey;           ///< date
TX_EXPORT extern const QString TXUpdatePrefLastSystemProfileDateKey;         ///< date
TX_EXPORT extern const QString TXUpdatePrefAnonymousUUIDKey;                 ///< string
TX_EXPORT extern const QString TXUpdatePrefIgnoreVersionKey;  ///< dictionary: "version", "date"
TX_EXPORT extern const QString TXUpdatePrefPostsCheckInfoKey; ///< dictionary: track name to handled posts

/// Domain of the errors that stand in for network errors in the standard user interface.
TX_EXPORT extern const QString TXUpdateErrorDomain;
