// SPDX-License-Identifier: MIT
#include "base/timers.h"

#include <algorithm>

namespace tx {

using std::chrono::milliseconds;

LongTimer::LongTimer(std::function<void()> action, milliseconds longestStep)
    : m_action(std::move(action))
    , m_longestStep(longestStep) {
    m_timer.setSingleShot(true);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
        if (m_remaining > milliseconds::zero()) {
            schedule();
            return;
        }
        m_remaining = m_interval;
        schedule();
        m_action(); // last: it may stop or delete this timer
    });
}

void LongTimer::start(milliseconds interval) {
    m_interval = std::max(interval, milliseconds(1));
    m_remaining = m_interval;
    schedule();
}

void LongTimer::stop() { m_timer.stop(); }

void LongTimer::schedule() {
    const milliseconds step = std::min(m_remaining, m_longestStep);
    m_remaining -= step;
    // Whole-second accuracy lets the system bundle wake-ups.
    m_timer.setTimerType(step > std::chrono::seconds(20) ? Qt::VeryCoarseTimer : Qt::CoarseTimer);
    m_timer.start(step);
}

} // namespace tx
