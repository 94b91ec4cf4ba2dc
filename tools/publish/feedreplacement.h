// SPDX-License-Identifier: MIT
#pragma once

#include "publish/faults.h"
#include "publish/feeddocument.h"
#include "publish/publication.h"

namespace tx::publishing {

/// Reads the feed at a target, and replaces it with an edited one unless somebody else has replaced it in the
/// meantime.
class FeedReplacement {
public:
    /// Locks the target and reads the feed. Faults: File; Input, also if the feed is signed and `place` has
    /// no signer.
    static Outcome<FeedReplacement> begin(const FeedPlace &place, Target &target);

    [[nodiscard]] const FeedDocument &document() const { return m_document; }
    [[nodiscard]] bool exists() const { return m_before.content.has_value(); }

    /// Edits and signs the feed, and parses the result as applications do. See FeedDocument::edited().
    [[nodiscard]] Verdict edit(const QString &track, const QList<QByteArray> &added,
                               const QList<qsizetype> &dropped);

    /// Replaces the feed at the target with the edited one, unless it has changed since it was read.
    [[nodiscard]] Verdict replace(Trace &trace);
    /// Completes a replacement that an earlier run began. Does nothing if there is none.
    [[nodiscard]] Verdict finishInterrupted();

    /// Problems with the way the server delivers the feed; empty if there are none.
    [[nodiscard]] QStringList doubtsAboutServer() const;

private:
    FeedReplacement(const FeedPlace &place, Target &target, StoredFeed before, FeedDocument document);

    const FeedPlace *m_place;
    Target *m_target;
    StoredFeed m_before;
    FeedDocument m_document;
    QByteArray m_after;
};

} // namespace tx::publishing
