// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QString>

namespace tx::cli {

/// Downloads each archive of a feed, unpacks it into a separate folder as the application `app` would, and
/// applies the checks of an installation. Prints a table on standard output: one line for each archive,
/// followed by its problems. Returns false if one of them could not be installed, or if `app` is not an
/// application. If `app` is null, all archives must contain the same application, and older builds are
/// accepted. Runs an event loop. Thread: main.
[[nodiscard]] bool checkArchives(const TXUpdateFeed::TrackMap &tracks, const QString &app);

} // namespace tx::cli
