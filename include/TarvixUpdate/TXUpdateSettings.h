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

/// Domain of verification errors, whose codes are TXUpdateErrorCode. The standard user interface also uses it
/// for errors that it shows in place of network errors; their codes are those of TXURLErrorDomain, which are
/// negative.
TX_EXPORT extern const QString TXUpdateErrorDomain;

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXUpdateErrorEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Why an application with keys (TXUpdatePublicKeys in its Info.plist) refuses a feed or an archive. The
/// underlying error describes the problem in English, for the publisher.
enum TXUpdateErrorCode : int {
    /// The keys in the application's Info.plist, or another value about signatures there, are malformed. The
    /// application checks for, downloads and installs nothing.
    TXUpdateErrorKeysMalformed = 1,
    /// None of the keys has signed the feed.
    TXUpdateErrorFeedNotSigned = 2,
    /// The feed differs from what was signed, or was signed for another application or another feed name.
    TXUpdateErrorFeedNotGenuine = 3,
    /// The feed's signature is dated more than one day in the future: the clock of this machine is wrong, or
    /// the signer's was.
    TXUpdateErrorFeedAheadOfClock = 4,
    /// The feed is older than one that this application has already received. The server lags behind, or
    /// somebody serves an old feed again.
    TXUpdateErrorFeedOlder = 5,
    /// The signature of the feed has expired.
    TXUpdateErrorFeedExpired = 6,
    /// None of the keys has signed the archive.
    TXUpdateErrorArchiveNotSigned = 7,
    /// The archive, or the application in it, differs from what was signed.
    TXUpdateErrorArchiveNotGenuine = 8,
    /// None of the keys in the new application verifies the archive, so the new application could never be
    /// updated.
    TXUpdateErrorReleaseNotContinued = 9,
    /// The archive could not be read or copied to be verified.
    TXUpdateErrorArchiveNotRead = 10
};
Q_ENUM_NS(TXUpdateErrorCode)

} // namespace TXUpdateErrorEnumerations
