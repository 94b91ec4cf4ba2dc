// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

namespace tx {

/// How many bytes a feed may have. Host applications raise it by a number in their Info.plist,
/// "TXUpdateMaximumFeedSize". Thread: any.
[[nodiscard]] qint64 largestFeed();

} // namespace tx
