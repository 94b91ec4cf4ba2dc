// SPDX-License-Identifier: MIT
#pragma once

#include <QTimer>

#include <chrono>
#include <functional>

namespace tx {

/// A repeating timer whose interval may exceed QTimer's maximum of 24 days. Between two timeouts it wakes the
/// process at most once in 24 days. Thread: the thread that created it, which needs an event loop.
class LongTimer {
public:
    /// `longestStep`: what one underlying timer is trusted with; tests make it short.
    explicit LongTimer(std::function<void()> action,
                       std::chrono::milliseconds longestStep = std::chrono::hours(24 * 24));

    /// Fires first after one whole interval, then at each further one.
    void start(std::chrono::milliseconds interval);
    void stop();
    /// Before the first start, when the timer belongs to another thread than the one that makes it.
    void moveToThread(QThread *thread) { m_timer.moveToThread(thread); }
    [[nodiscard]] bool isActive() const { return m_timer.isActive(); }
    [[nodiscard]] std::chrono::milliseconds interval() const { return m_interval; }

private:
    void schedule();

    std::function<void()> m_action;
    std::chrono::milliseconds m_longestStep;
    std::chrono::milliseconds m_interval{0};
    std::chrono::milliseconds m_remaining{0};
    QTimer m_timer;
};

} // namespace tx
