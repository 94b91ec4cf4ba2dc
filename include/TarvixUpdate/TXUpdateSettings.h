// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QString>

// Keys of the settings in the application's user defaults. An absent key reads as false, 0 or null.
TX_EXPORT extern const QString TXUpdatePrefUpdateCheckIntervalKey;           ///< double, seconds
TX_EXPORT extern const QString TXUpdatePrefAutomaticallyChecksForUpdatesKey; ///< bool
TX_EXPORT extern const QString TXUpdatePrefAutomaticallyDownloadsUpdatesKey; ///< bool
TX_EXPORT extern const QString TXUpdatePrefSendsSystemProfileKey;            ///< bool
TX_EXPORT extern const QString TXUpdatePrefFeedURLKey;                       ///< string
TX_EXPORT extern const QString TXUpdatePrefFeedNameKey;                      ///< string
TX_EXPORT extern const QString TXUpdatePrefLastUpdateCheckDateKey;           ///< date
TX_EXPORT extern const QString TXUpdatePrefLastSystemProfileDateKey;         ///< date
TX_EXPORT extern const QString TXUpdatePrefAnonymousUUIDKey;                 ///< string
TX_EXPORT extern const QString TXUpdatePrefIgnoreVersionKey;  ///< dictionary: "version", "date"
TX_EXPORT extern const QString TXUpdatePrefPostsCheckInfoKey; ///< dictionary: track name to handled posts

/// Domain of the errors of verification (TXUpdateErrorCode), and of those that stand in for network errors in
/// the standard user interface, whose codes are those of TXURLErrorDomain and negative.
TX_EXPORT extern const QString TXUpdateErrorDomain;

/// Makes Qt know the names of the enumerators, for logs and scripts. Its members belong to the global
/// namespace, too.
inline namespace TXUpdateErrorEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Why an application with keys (TXUpdatePublicKeys in its Info.plist) refuses a feed or an archive. The
/// underlying error says in English what was found, for the publisher.
enum TXUpdateErrorCode : int {
    /// The keys in the application's Info.plist, or what belongs to them, are malformed. Nothing is checked,
    /// downloaded or installed.
    TXUpdateErrorKeysMalformed = 1,
    /// The feed carries no signature by one of the keys.
    TXUpdateErrorFeedNotSigned = 2,
    /// The feed is not what a key has signed: it was changed, or is for another application or name.
    TXUpdateErrorFeedNotGenuine = 3,
    /// The feed was signed more than a day after now: this machine's clock is wrong, or the signer's was.
    TXUpdateErrorFeedAheadOfClock = 4,
    /// The feed is older than one that this application has received: a server lags, or repeats an old feed.
    TXUpdateErrorFeedOlder = 5,
    /// The signature of the feed has expired.
    TXUpdateErrorFeedExpired = 6,
    /// The archive carries no signature by one of the keys.
    TXUpdateErrorArchiveNotSigned = 7,
    /// The archive, or the application in it, is not what a key has signed.
    TXUpdateErrorArchiveNotGenuine = 8,
    /// The application in the archive has no keys that verify the archive, so it could never be updated.
    TXUpdateErrorReleaseNotContinued = 9,
    /// The archive could not be read or copied for its verification.
    TXUpdateErrorArchiveNotRead = 10
};
Q_ENUM_NS(TXUpdateErrorCode)

} // namespace TXUpdateErrorEnumerations
