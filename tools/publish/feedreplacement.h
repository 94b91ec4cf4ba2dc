// SPDX-License-Identifier: MIT
#pragma once

#include "publish/feeddocument.h"
#include "publish/publication.h"

namespace tx::publishing {

/// The feed that is at a target, and its replacement by an edited one, as long as nobody else replaces it
/// meanwhile.
class FeedReplacement {
public:
    /// Occupies the target and reads the feed. Faults: File; Input, also when a feed is signed and the place
    /// has nobody to sign it again.
    static trust::Outcome<FeedReplacement> begin(const FeedPlace &place, Target &target);

    [[nodiscard]] const FeedDocument &document() const { return m_document; }
    [[nodiscard]] bool exists() const { return m_before.content.has_value(); }

    /// Edits and signs. The result has been read as applications read it. See FeedDocument::edited().
    [[nodiscard]] trust::Verdict edit(const QString &track, const QList<QByteArray> &added,
                                      const QList<qsizetype> &dropped);

    /// Puts the edited feed in place of the one that was read, unless it was changed since.
    [[nodiscard]] trust::Verdict replace(Trace &trace);
    /// Ends a replacement that an earlier run began. Nothing happens when there is none.
    [[nodiscard]] trust::Verdict finishInterrupted();

    /// What is wrong with the way in which the feed is served now; empty when nothing is.
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
