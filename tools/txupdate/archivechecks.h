// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateFeed.h>

#include <QString>

namespace tx::cli {

/// Downloads and unpacks each archive of a feed into a folder of its own, as the application `app` would, and
/// applies the checks of an installation. Prints a table on standard output, one line an archive, with what
/// is wrong below it. False when one of them could not be installed, or when `app` is not an application.
/// Without an application (null) the archives must hold one and the same, and an older build is as good as a
/// newer one. Runs an event loop. Thread: main.
[[nodiscard]] bool checkArchives(const TXUpdateFeed::TrackMap &tracks, const QString &app);

} // namespace tx::cli
