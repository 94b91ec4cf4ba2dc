// SPDX-License-Identifier: MIT
#pragma once

#include "feed/readercontext.h"

namespace tx::cli {

/// Lists entries of a JSON feed that are probably mistakes: without a date, with an invalid URL, with a
/// member that no application knows, with a build that occurs twice in a track, or with an archive that
/// cannot be unpacked.
[[nodiscard]] QList<SkippedEntry> doubtsAbout(const QByteArray &jsonFeed);

/// Lists such items of an appcast, and elements that have no effect.
[[nodiscard]] QList<SkippedEntry> doubtsAboutAppcast(const QByteArray &appcast);

/// Builds whose archive has no https URL: applications that have the feed from an https URL do not download
/// it.
[[nodiscard]] QList<SkippedEntry> insecureArchives(const QByteArray &feed, bool isJson);

/// Posts whose end date has passed: every reader drops them.
[[nodiscard]] QList<SkippedEntry> endedPosts(const QByteArray &jsonFeed, const QDateTime &now);

} // namespace tx::cli
