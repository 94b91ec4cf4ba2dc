// SPDX-License-Identifier: MIT
#pragma once

#include "feed/jsonentries.h"
#include "publish/faults.h"
#include "trust/feeds.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace tx::publishing {

/// A JSON feed that is edited as text. Members that this program does not know, the order of members and the
/// formatting are kept. Thread: a value.
class FeedDocument {
public:
    struct Entry {
        QString track;
        qsizetype index = 0; ///< position in its track
        JsonEntry members;
        QByteArray text; ///< its JSON text, unchanged
    };

    /// Parses a feed, signed or not. Empty `bytes` make a new feed. An existing signature is kept without
    /// being verified, because the next signature must have a larger serial. Fault: Input, if the feed is not
    /// JSON or has two tracks of the same name.
    static Outcome<FeedDocument> parse(const QByteArray &bytes);

    /// The entries of all tracks, in their order.
    [[nodiscard]] const QList<Entry> &entries() const { return m_entries; }
    /// The content of the feed's signature, not verified. Absent if there is no signature.
    [[nodiscard]] const std::optional<trust::FeedClaim> &claim() const { return m_claim; }

    /// Returns the feed with `added` inserted at the beginning of `track`, and without the entries in
    /// `dropped` (indices of entries()). Creates the track if it is missing. The old signature line stays as
    /// the first line although it no longer matches. Fault: Input, if the result does not parse as expected.
    [[nodiscard]] Outcome<QByteArray> edited(const QString &track, const QList<QByteArray> &added,
                                             const QList<qsizetype> &dropped) const;

private:
    struct Track {
        QString name;
        qsizetype begin = 0; ///< offset of the "[" of its list in the body
        qsizetype end = 0;   ///< offset after the "]" of its list
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
