// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trust/appinfo.h"
#include "trust/feeds.h"

#include <QByteArray>

namespace tx {

/// Whether what the host remembers of earlier feeds counts, and is changed. Publishers look at a feed
/// without.
enum class FeedMemory : bool { Ignored, Kept };

/// Decides whether a reader may see a document that came from a server, and makes of it what the reader is
/// given: without the first line that carries signatures. Where the host has keys and requires a signed feed,
/// the document is verified, must be for this host and fresh, and is remembered; otherwise that line is
/// dropped unread.
///
/// The result is what the signature says; absent for a feed that was not verified. Errors:
/// TXUpdateErrorDomain, the codes about feeds. Thread: any.
Result<std::optional<trust::FeedClaim>> admitFeed(QByteArray &document, trust::FeedFormat servedAs,
                                                  const trust::AppInfo &host, FeedMemory memory);

/// The error for a feed that was refused. Thread: any.
TXError feedTrustError(const trust::Fault &fault);

} // namespace tx
