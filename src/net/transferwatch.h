// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <deque>
#include <functional>

namespace tx {

/// What a transfer must keep to. Zero: no limit.
struct TransferLimits {
    std::chrono::milliseconds idle{0};  ///< longest time without any progress
    std::chrono::milliseconds total{0}; ///< longest time for all of it
    qint64 rate = 0;                    ///< bytes a second, on average over any `rateSpan`
};

/// Says when a transfer breaks one of its limits. Time is that of `Services::transferClock`; while the
/// process is stopped, or the machine sleeps, hardly any passes. Thread: the one that made it.
class TransferWatch final : public QObject {
public:
    static constexpr std::chrono::seconds rateSpan{60};

    /// `broken` is called once, with the limit that was exceeded. It may delete the watch.
    TransferWatch(const TransferLimits &limits, std::function<void(const QString &what)> broken);

    /// Something came, or was sent. `bytes`: what counts towards the rate.
    void noteProgress(qint64 bytes = 0);
    /// While it is paused, the transfer waits for this side: only the total time passes.
    void setPaused(bool paused);

private:
    void look();
    [[nodiscard]] QString whatIsBroken();

    /// What had come at a time.
    struct Sample {
        std::chrono::milliseconds time;
        qint64 bytes;
    };

    const TransferLimits m_limits;
    std::function<void(const QString &)> m_broken;
    QTimer m_timer;
    std::chrono::milliseconds m_lastLook;
    std::chrono::milliseconds m_time{0};     ///< since the beginning
    std::chrono::milliseconds m_progress{0}; ///< when the last one was noted
    qint64 m_bytes = 0;
    std::deque<Sample> m_samples; ///< of the last span, oldest first
    bool m_paused = false;
};

} // namespace tx
