// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <chrono>

namespace tx::publishing {

/// A bar on a terminal's last line for what takes longer than a second. Nothing is shown for shorter steps,
/// or when standard error is not a terminal. Thread: one.
class Progress {
public:
    /// `terminal`: a descriptor; -1 shows nothing.
    explicit Progress(int terminal);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// A new step. `total`: bytes; 0 when that is not known.
    void begin(const QString &what, qint64 total);
    void add(qint64 bytes) { show(m_done + bytes); }
    /// `done`: bytes of this step so far.
    void show(qint64 done);
    /// Ends the step and clears its line.
    void end();

private:
    const int m_terminal;
    QString m_what;
    qint64 m_total = 0;
    qint64 m_done = 0;
    std::chrono::steady_clock::time_point m_since;
    std::chrono::steady_clock::time_point m_drawn;
    bool m_isShown = false;
};

} // namespace tx::publishing
