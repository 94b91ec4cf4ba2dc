// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace tx {

/// Runs work that may never end, such as a read from a file system that hangs, and waits for it only for a
/// limited time. After that the thread of the work is abandoned. Nothing can interrupt it, so it may still
/// run while the static objects of the process are destroyed. Thread: any.
class LimitedWork {
public:
    LimitedWork();
    ~LimitedWork(); ///< Does not wait.
    LimitedWork(const LimitedWork &) = delete;
    LimitedWork &operator=(const LimitedWork &) = delete;

    /// Runs `work` on a new thread and waits until it ends. Returns whether it has ended: false if it takes
    /// longer than `limit`, or if the application begins to end. If an abandoned thread of an earlier call is
    /// still running, returns false immediately without running `work`, so that threads do not accumulate.
    /// `work` must own everything that it uses, and may use no static object that is ever destroyed.
    [[nodiscard]] bool run(std::chrono::milliseconds limit, std::function<void()> work);

private:
    struct State;
    const std::shared_ptr<State> m_state;
};

} // namespace tx
