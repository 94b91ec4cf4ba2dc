// SPDX-License-Identifier: MIT
#pragma once

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

    /// The running host, now, and a feed from this URL.
    static ReaderContext forHost(const QUrl &feedURL);
};

/// The error of a reader: what is wrong with the document, and where.
[[nodiscard]] TXError unreadableFeed(const QString &what);

} // namespace tx
