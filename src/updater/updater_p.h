// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdater.h>

#include "base/timers.h"

#include <atomic>

namespace tx {

/// What a check reports of the result of its fetch: the feed, or null with an error. A result without either
/// is a mistake in this program and ends it. Thread: any.
[[nodiscard]] TXUpdateFeedPtr reportedFeed(const TXUpdateFeedPtr &feed, const TXError &error);

} // namespace tx

struct TXUpdater::Private {
    /// Set on the thread that starts a check and cleared on the main thread.
    std::atomic<bool> isChecking{false};
    std::atomic<TXUpdaterDelegate *> delegate{nullptr}; ///< set on the main thread, read by a check
    /// Who else waits for the result of the running check. Main thread.
    QList<TXUpdater::CompletionHandler> joined;
    tx::LongTimer timer{[] { TXUpdater::sharedUpdater()->autocheckForUpdate(); }};
};
