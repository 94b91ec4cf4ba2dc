// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdater.h>

#include "platform/timers.h"

#include <atomic>

struct TXUpdater::Private {
    /// Set on the thread that starts a check and cleared on the network thread.
    std::atomic<bool> isChecking{false};
    std::atomic<TXUpdaterDelegate *> delegate{nullptr}; ///< set on the main thread, looked at by a check
    tx::LongTimer timer{[] { TXUpdater::sharedUpdater()->autocheckForUpdate(); }};
};
