// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace tx {

/// Runs `work` later on the main thread. Dropped, its captures destroyed, when the application ends first.
/// Thread: any.
void postToMain(std::function<void()> work);

/// Runs `work` on the main thread and waits for it; at once when called there. False when the application is
/// ending, so that a background job never blocks its end.
[[nodiscard]] bool runOnMainAndWait(const std::function<void()> &work);

/// Runs `work` on the global thread pool. Thread: any.
void runInBackground(std::function<void()> work);

/// Calls `work` once, on the main thread, when the application object is about to go. Thread: any.
void whenApplicationEnds(std::function<void()> work);

} // namespace tx
