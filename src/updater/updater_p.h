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

    // The steps of a check, in their order. Each one starts the next one, perhaps on another thread.

    /// Blocks. Thread: a background thread.
    void measureProfile(TXUpdater &updater, const CompletionHandler &handler);
    /// Asks the delegate on the main thread if there is one. Thread: any.
    void askDelegate(TXUpdater &updater, const CompletionHandler &handler,
                     const TXUpdateSystemProfilePtr &profile);
    /// Thread: any.
    void fetch(TXUpdater &updater, const CompletionHandler &handler, const TXUpdateSystemProfilePtr &profile,
               const QVariantMap &parameters);
    /// Thread: any.
    void end(TXUpdater &updater, const CompletionHandler &handler, const TXUpdateFeedPtr &feed,
             const TXError &error, bool sentProfile);
    /// Ends the check if the application's keys are malformed, so that nothing is measured and nobody is
    /// asked. The fetch itself refuses such keys as well. Thread: any.
    bool endsForKeys(TXUpdater &updater, const CompletionHandler &handler);

    tx::LongTimer timer{[] { TXUpdater::sharedUpdater()->autocheckForUpdate(); }};
};
