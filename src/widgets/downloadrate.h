// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace tx {

/// Computes the rate of a download from its progress in the last seconds. Thread: main.
class DownloadRate {
public:
    /// `progress` is 0 to 1; `seconds` is the time of any monotonic clock.
    void add(double progress, double seconds);
    void reset() { m_samples.clear(); }
    /// "12 MB of 150 MB, 3.1 MB/s, 0:45 left" for a size in bytes; null while nothing can be said.
    [[nodiscard]] QString text(quint64 size) const;

private:
    struct Sample {
        double progress;
        double seconds;
    };
    QList<Sample> m_samples;
};

} // namespace tx
