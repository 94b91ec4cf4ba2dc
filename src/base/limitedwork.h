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

    /// Runs `work` on a thread of its own and waits for its end. Returns whether it has ended; false after
    /// `limit`, and as soon as the end of the application begins. While an abandoned thread of an earlier
    /// call still runs, `work` is not run and the result is false at once, so that threads do not pile up.
    /// `work` must own everything that it uses, and may use no static object that is ever destroyed.
    [[nodiscard]] bool run(std::chrono::milliseconds limit, std::function<void()> work);

private:
    struct State;
    const std::shared_ptr<State> m_state;
};

} // namespace tx
