// SPDX-License-Identifier: MIT
#pragma once

#include "feed/feedentry.h"

#include <QtGlobal>

#include <algorithm>

namespace tx {

/// What the objects that a feed describes may take: with the document itself and what its reader needs, a
/// feed takes about six times its size at most. Small feeds may take `least` all the same. Thread: a value.
class FeedBudget {
public:
    explicit FeedBudget(qsizetype documentSize)
        : m_left(std::max<qint64>(timesTheDocument * documentSize, least)) {}

    /// Each answers false once it has become too much.
    [[nodiscard]] bool takeTrack() { return take(costOfTrack); }
    [[nodiscard]] bool takeItem(const FeedEntry &entry) {
        qint64 cost = costOfItem;
        for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
            const auto member = static_cast<FeedEntry::Member>(i);
            // Packed in UTF-8, then as a text in UTF-16.
            if (entry.has(member))
                cost += costOfText + 3 * static_cast<qint64>(entry.bytes(member).size());
        }
        return take(cost);
    }

private:
    static constexpr qint64 timesTheDocument = 5;
    static constexpr qint64 least = 40 << 20;
    // Estimates, rounded up; FeedMemory measures what comes of them.
    static constexpr qint64 costOfTrack = 1200;
    static constexpr qint64 costOfItem = 1000;
    static constexpr qint64 costOfText = 32;

    [[nodiscard]] bool take(qint64 bytes) {
        m_left -= bytes;
        return m_left >= 0;
    }

    qint64 m_left;
};

} // namespace tx
