// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <functional>

/// Calls `work` and stores the current time in `lastTime` (seconds since 2001-01-01 UTC) if more than
/// `interval` seconds have passed since the stored time, or if the clock was set back. Otherwise it does
/// nothing. Each caller keeps its own `lastTime`, initially 0. The framework limits reports of progress to
/// one in 0.1 seconds.
///
///     static double lastTime = 0;
///     __TXUpdateAllowOnceEvery([&] { showProgress(done); }, &lastTime, 0.1);
///
/// Thread: not thread-safe. Call it on one thread for each `lastTime`.
TX_EXPORT void __TXUpdateAllowOnceEvery(const std::function<void()> &work, double *lastTime, double interval);
