// SPDX-License-Identifier: MIT
#pragma once

#include "feed/jsonentries.h"
#include "trust/fault.h"
#include "trust/feeds.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace tx::publishing {

/// A JSON feed whose entries are added and removed in its text: members that nobody knows, their order, and
/// the way in which it is written stay. Thread: a value.
class FeedDocument {
public:
    struct Entry {
        QString track;
        qsizetype index = 0; ///< in its track
        JsonEntry members;
        QByteArray text; ///< as it is written
    };

    /// `bytes`: of a feed, signed or not; empty for a new feed. A signature is kept, unverified, for the
    /// serial that the next one must exceed. Fault: Input, when it is not a JSON feed, or has a track twice.
    static trust::Outcome<FeedDocument> parse(const QByteArray &bytes);

    /// Of all tracks, in their order.
    [[nodiscard]] const QList<Entry> &entries() const { return m_entries; }
    /// What its signature says, which is not verified; absent without one.
    [[nodiscard]] const std::optional<trust::FeedClaim> &claim() const { return m_claim; }

    /// The feed with these texts first in a track, which is made when it is missing, and without the entries
    /// (indices of entries()) that are dropped. An earlier signature, which does not fit any more, is still
    /// the first line. Fault: Input, when the result is not what was asked for.
    [[nodiscard]] trust::Outcome<QByteArray> edited(const QString &track, const QList<QByteArray> &added,
                                                    const QList<qsizetype> &dropped) const;

private:
    struct Track {
        QString name;
        qsizetype begin = 0; ///< of its list in the body, from "[" ...
        qsizetype end = 0;   ///< ... to behind "]"
        QList<std::pair<qsizetype, qsizetype>> elements;
    };
    [[nodiscard]] QByteArray listWith(const Track &track, const QList<QByteArray> &added,
                                      const QList<qsizetype> &kept) const;

    QByteArray m_line; ///< the signature's, with its line feed; empty without one
    QByteArray m_body; ///< a whole JSON document
    QList<Track> m_tracks;
    QList<Entry> m_entries;
    std::optional<trust::FeedClaim> m_claim;
};

/// A JSON string with its quotes.
[[nodiscard]] QByteArray jsonString(const QString &text);

/// The text of an entry: its members with values that are JSON already, in this order.
using EntryMembers = QList<std::pair<QString, QByteArray>>;
[[nodiscard]] QByteArray entryText(const EntryMembers &members);

} // namespace tx::publishing
