// SPDX-License-Identifier: MIT
#pragma once

#include "feed/readercontext.h"

namespace tx::cli {

/// Entries of a JSON feed that a publisher may not have meant so: no date, an address that is none, a member
/// that no reader knows, a build that stands twice in a track, an archive that cannot be unpacked.
[[nodiscard]] QList<SkippedEntry> doubtsAbout(const QByteArray &jsonFeed);

/// The same for the items of an appcast, and what stands in it without effect.
[[nodiscard]] QList<SkippedEntry> doubtsAboutAppcast(const QByteArray &appcast);

/// Builds whose archive has no https URL: applications that have the feed from an https URL do not download
/// it.
[[nodiscard]] QList<SkippedEntry> insecureArchives(const QByteArray &feed, bool isJson);

/// Posts whose end date has passed: every reader drops them.
[[nodiscard]] QList<SkippedEntry> endedPosts(const QByteArray &jsonFeed, const QDateTime &now);

} // namespace tx::cli
