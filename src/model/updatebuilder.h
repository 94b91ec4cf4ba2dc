// SPDX-License-Identifier: MIT
#pragma once

#include "model/entrysignatures.h"
#include "model/packedentries.h"

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

template <typename Fields>
class ItemContent;
struct UpdateDetails;

/// What a feed says of an update. Addresses are percent-encoded, empty when absent, and parsed when asked
/// for.
struct UpdateFields {
    QString title;
    QString version;
    QString displayVersion;
    QString dateString;
    QString itemDescription;
    QString extra;
    QByteArray releaseNotesURL;
    QByteArray fileURL;
    QByteArray linkURL;
    EntrySignatures signatures;
    QSizeF preferredDisplaySize{0, 0};
    std::optional<TXUpdateItemConditions> conditions;
    bool excludeFromAutoDownloading = false;
    bool isFromSecureFeed = false; ///< which names only https archives
};

/// Whether the entry is not to be downloaded without a question.
[[nodiscard]] bool excludesFromAutoDownloading(const FeedEntry &entry);

/// All that an entry of a feed says, as an update has it.
[[nodiscard]] UpdateFields fieldsFrom(const ItemContent<UpdateDetails> &content);

/// Makes updates that read their values from a feed's entry on request. Thread: any. An update belongs to the
/// main thread and is deleted there, whichever thread releases the last reference.
class UpdateBuilder {
public:
    static TXUpdatePtr make(PackedEntry entry);
    /// The signatures that the feed states for the update's archive. Thread: the update's.
    [[nodiscard]] static EntrySignatures signaturesOf(const TXUpdate &update);
};

} // namespace tx
