// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trust/appinfo.h"
#include "trust/feeds.h"

#include <QByteArray>

namespace tx {

/// Whether admitFeed() compares the feed with what the host remembers of earlier feeds, and then remembers
/// this one. Publishers' tools ignore the memory.
enum class FeedMemory : bool { Ignored, Kept };

/// Decides whether a document from a server may be parsed. Removes the first line if it carries signatures,
/// so that the parser never gets it. If the host has keys and requires a signed feed, the document must be
/// verified, meant for this host and fresh; the feed is then remembered. Otherwise the signature line is
/// dropped without being read.
/// Returns what the signature says, or an empty optional if the feed was not verified. Errors: the codes of
/// TXUpdateErrorDomain about feeds. Thread: any.
Result<std::optional<trust::FeedClaim>> admitFeed(QByteArray &document, trust::FeedFormat servedAs,
                                                  const trust::AppInfo &host, FeedMemory memory);

/// Converts a fault into the error for a refused feed. Thread: any.
TXError feedTrustError(const trust::Fault &fault);

} // namespace tx
