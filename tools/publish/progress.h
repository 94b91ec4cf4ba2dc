// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <chrono>

namespace tx::publishing {

/// Shows a progress bar in the last line of a terminal for steps that take longer than a second. Shows
/// nothing for shorter steps, or if it is not a terminal. The clock is Services::transferClock. Thread: use
/// on one thread.
class Progress {
public:
    /// `terminal` is a file descriptor; -1 shows nothing.
    explicit Progress(int terminal);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Starts a step. `total` is in bytes; 0 if unknown.
    void begin(const QString &what, qint64 total);
    void add(qint64 bytes) { show(m_done + bytes); }
    /// `done` is the number of bytes of this step so far.
    void show(qint64 done);
    /// The same for a step whose size is known only now.
    void show(qint64 done, qint64 total);
    /// Ends the step and clears its line.
    void end();

private:
    const int m_terminal;
    QString m_what;
    qint64 m_total = 0;
    qint64 m_done = 0;
    std::chrono::milliseconds m_since{0};
    std::chrono::milliseconds m_drawn{0};
    bool m_isShown = false;
};

} // namespace tx::publishing
