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

    /// The host whose keys decide: the parser leaves out an entry if none of these keys can verify its
    /// archive. Null for a host without keys. Must exist while the feed is parsed.
    const trust::AppInfo *trust = nullptr;
    /// Keeps the signature members of entries so that a publisher's tool can show them. The parser also keeps
    /// them if `trust` is set.
    bool keepsSignatures = false;
    /// The feed itself is signed. The parser then also keeps entries that name only a web page.
    bool isSigned = false;

    /// The running host, now, and a feed from this URL.
    static ReaderContext forHost(const QUrl &feedURL);
};

/// Returns why an entry of this build is left out because of missing or unusable signatures; null if it is
/// kept. Does not verify signatures: that is done later, and only for the update that is chosen.
[[nodiscard]] QString reasonAgainstSignatures(const FeedEntry &entry, const ReaderContext &context);

/// Makes a parser's error: what is wrong with the document, and where.
[[nodiscard]] TXError unreadableFeed(const QString &what);

} // namespace tx
