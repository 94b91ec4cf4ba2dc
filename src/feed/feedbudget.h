// SPDX-License-Identifier: MIT
#pragma once

#include "model/packedentries.h"

#include <QtGlobal>

#include <algorithm>

namespace tx {

/// Limits the memory of the objects that a feed describes, so that no feed takes more than six times its
/// size.
///
/// During parsing, memory holds the document, four bytes for each JSON token, and the packed strings of the
/// applicable entries. After parsing it holds the packed strings and the objects. Small feeds may always use
/// `least` bytes. Thread: a value.
class FeedBudget {
public:
    // What the C library's allocator hands out for one of each, measured on 64-bit Linux with Qt 6.4; the
    // test FeedObjects measures again.
    /// The update with Qt's data for it, its pointer and its place in a list.
    static constexpr qint64 costOfUpdate = 240;
    /// The post, its pointer and place in a list.
    static constexpr qint64 costOfPost = 80;
    /// The track with a list of each, and its place in the feed.
    static constexpr qint64 costOfTrack = 1420;

    explicit FeedBudget(qsizetype documentSize)
        : m_left(std::max<qint64>(documentSize * objectsPerCent / 100, least))
        , m_textLeft(std::max<qint64>(documentSize * textsPerCent / 100, least))
        , m_tracksLeft(std::max<qint64>(documentSize * tracksPerCent / 100, least)) {}

    /// Each answers false once it has become too much.
    [[nodiscard]] bool takeTrack(const QString &name) {
        const qint64 cost = costOfTrack + name.size() * static_cast<qint64>(sizeof(QChar));
        m_tracksLeft -= cost;
        return take(cost, 0) && m_tracksLeft >= 0;
    }
    [[nodiscard]] bool takeUpdate(const FeedEntry &entry) { return takeItem(costOfUpdate, entry); }
    [[nodiscard]] bool takePost(const FeedEntry &entry) { return takeItem(costOfPost, entry); }

private:
    static constexpr qint64 objectsPerCent = 540; ///< of the document; objects and texts together
    /// Of the document: numbers and characters may be longer than it has them.
    static constexpr qint64 textsPerCent = 175;
    /// Likewise: tracks are made while the document is there.
    static constexpr qint64 tracksPerCent = 270;
    static constexpr qint64 least = 20 << 20;

    [[nodiscard]] bool takeItem(qint64 cost, const FeedEntry &entry) {
        const auto text = static_cast<qint64>(PackedEntries::sizeOf(entry));
        return take(cost + text, text);
    }
    [[nodiscard]] bool take(qint64 bytes, qint64 text) {
        m_left -= bytes;
        m_textLeft -= text;
        return m_left >= 0 && m_textLeft >= 0;
    }

    qint64 m_left;
    qint64 m_textLeft;
    qint64 m_tracksLeft;
};

} // namespace tx
