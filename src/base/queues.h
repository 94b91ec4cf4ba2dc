// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

namespace tx {

/// Runs `work` later on the main thread. Dropped, its captures destroyed, when the application ends first.
/// Thread: any.
void postToMain(std::function<void()> work);

/// Runs `work` on the main thread and waits for it. Runs it directly if called on the main thread. Returns
/// false while the application is ending, so that a background job never delays the end. `work` may still run
/// in that case, so it must own what it writes to.
[[nodiscard]] bool runOnMainAndWait(std::function<void()> work);

/// Runs `work` on a thread of the framework's own; the host's thread pool is neither used nor waited for.
/// Jobs mostly wait, for a program or the main thread, so one never waits for the end of another, however few
/// processors there are. Dropped, its captures destroyed, when the application ends first. Thread: any.
void runInBackground(std::function<void()> work);

/// Waits until no background job runs or is queued; false when that takes longer than `limit`.
[[nodiscard]] bool waitForBackground(std::chrono::milliseconds limit);

/// Where a step of the application's end can run when another thread than the main one calls exit().
enum class AtEnd {
    OnMainThread, ///< not then
    OnAnyThread
};

/// Calls `work` once when the application object is about to go, or when the process ends by exit(): on the
/// main thread, unless another one calls exit(). Thread: any.
void whenApplicationEnds(std::function<void()> work, AtEnd where = AtEnd::OnMainThread);

/// True from the beginning of the application's end; nothing is to be started any more. Thread: any.
[[nodiscard]] bool applicationIsEnding();

/// Lets go of what a background job waits for: `interrupt` is called when the application ends while this
/// object lives, at once when the end has begun already. The end of the application waits for `interrupt`,
/// and so does the destructor: it must be short and may call nothing of this file. Thread: `interrupt` on
/// any.
class InterruptAtEnd {
public:
    explicit InterruptAtEnd(std::function<void()> interrupt);
    ~InterruptAtEnd();
    InterruptAtEnd(const InterruptAtEnd &) = delete;
    InterruptAtEnd &operator=(const InterruptAtEnd &) = delete;

private:
    friend class EndOfApplication;
    const std::function<void()> m_interrupt;
};

} // namespace tx
