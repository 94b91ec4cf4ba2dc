// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <functional>

/// Calls `work` and stores the current time in `lastTime` (seconds since 2001-01-01 UTC) when strictly more
/// than `interval` seconds have passed since the stored time. Each caller keeps a slot of its own, at first
/// 0. Thread: as the slot's.
TX_EXPORT void __TXUpdateAllowOnceEvery(const std::function<void()> &work, double *lastTime, double interval);
