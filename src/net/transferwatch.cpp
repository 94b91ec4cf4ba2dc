// SPDX-License-Identifier: MIT
#include "net/transferwatch.h"

#include "os/services.h"

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace tx {

namespace {

/// The most time that counts between two looks. A process that was stopped has missed its looks, which is not
/// the server's fault.
constexpr std::chrono::milliseconds longestStep = 5s;

} // namespace

TransferWatch::TransferWatch(const TransferLimits &limits, std::function<void(const QString &)> broken)
    : m_limits(limits)
    , m_broken(std::move(broken))
    , m_lastLook(services().transferClock()) {
    // Short limits are kept as exactly as long ones.
    std::chrono::milliseconds tick = services().transferTick;
    for (const std::chrono::milliseconds limit : {limits.idle, limits.total}) {
        constexpr int looks = 10;
        if (limit > 0ms)
            tick = std::min(tick, std::max(limit / looks, 1ms));
    }
    connect(&m_timer, &QTimer::timeout, this, [this] { look(); });
    m_timer.start(tick);
}

void TransferWatch::noteProgress(qint64 bytes) {
    m_progress = m_time;
    m_bytes += bytes;
}

void TransferWatch::setPaused(bool paused) {
    m_paused = paused;
    m_progress = m_time;
    m_samples.clear();
}

void TransferWatch::look() {
    const std::chrono::milliseconds now = services().transferClock();
    m_time += std::clamp<std::chrono::milliseconds>(now - std::exchange(m_lastLook, now), 0ms, longestStep);
    const QString what = whatIsBroken();
    if (what.isNull())
        return;
    m_timer.stop();
    const auto broken = std::exchange(m_broken, nullptr);
    broken(what);
}

QString TransferWatch::whatIsBroken() {
    if (m_limits.total > 0ms && m_time >= m_limits.total)
        return u"It took longer than %1 s."_s.arg(m_limits.total.count() / 1000);
    if (m_paused)
        return {};
    if (m_limits.idle > 0ms && m_time - m_progress >= m_limits.idle)
        return u"Nothing came for %1 s."_s.arg(m_limits.idle.count() / 1000);
    if (m_limits.rate <= 0)
        return {};
    if (m_samples.empty() || m_samples.back().time < m_time)
        m_samples.push_back({m_time, m_bytes});
    while (m_samples.size() > 1 && m_samples[1].time <= m_time - rateSpan)
        m_samples.pop_front();
    const bool isFull = m_time - m_samples.front().time >= rateSpan;
    if (isFull && m_bytes - m_samples.front().bytes < m_limits.rate * rateSpan.count())
        return u"The server sent less than %1 bytes a second for %2 s."_s.arg(m_limits.rate)
            .arg(rateSpan.count());
    return {};
}

} // namespace tx
