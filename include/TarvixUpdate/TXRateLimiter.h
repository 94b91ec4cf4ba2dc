// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <functional>

/// Calls `work` and stores the current time in `lastTime` (seconds since 2001-01-01 UTC) when strictly more
/// than `interval` seconds have passed since the stored time, or the clock was set back; else does nothing.
/// Each caller keeps a slot of its own, at first 0, which outlives the call. The framework's own callers
/// limit reports of progress to one in 0.1 seconds.
///
///     static double lastTime = 0;
///     __TXUpdateAllowOnceEvery([&] { showProgress(done); }, &lastTime, 0.1);
///
/// Thread: not thread-safe. Call it on one thread for each `lastTime`.
TX_EXPORT void __TXUpdateAllowOnceEvery(const std::function<void()> &work, double *lastTime, double interval);
