// SPDX-License-Identifier: MIT
#pragma once

#include "model/feedentry.h"
#include "trust/appinfo.h"

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QDateTime>
#include <QUrl>

#include <functional>

namespace tx {

/// An entry that a reader left out.
struct SkippedEntry {
    QString track;
    qsizetype index = 0; ///< place in the track, from 0
    QString reason;
};

/// For whom a feed is read.
struct ReaderContext {
    QString appBuild;
    QString systemVersion;
    QDateTime now;
    /// Told of each entry that is left out, when set.
    std::function<void(const SkippedEntry &)> skipped;
    /// Keeps entries that only do not apply to this build or system.
    bool keepsIrrelevant = false;
    /// The feed has an https URL, so it may name only https archives; others cannot be downloaded.
    bool isSecure = false;

    /// The host whose keys decide: an entry is left out if none of them can verify its archive. Null: a host
    /// without keys. Read while the feed is.
    const trust::AppInfo *trust = nullptr;
    /// Keeps what entries say about signatures, for a publisher who looks at it. So does `trust`.
    bool keepsSignatures = false;
    /// The feed is signed itself: entries that name only a web page are kept, too.
    bool isSigned = false;

    /// The running host, now, and a feed from this URL.
    static ReaderContext forHost(const QUrl &feedURL);
};

/// Why the entry, of this build, is left out for want of a signature; null when it is not. Signatures are not
/// verified here, which is done for the one that is chosen.
[[nodiscard]] QString reasonAgainstSignatures(const FeedEntry &entry, const ReaderContext &context);

/// The error of a reader: what is wrong with the document, and where.
[[nodiscard]] TXError unreadableFeed(const QString &what);

} // namespace tx
