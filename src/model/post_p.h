// SPDX-License-Identifier: MIT
#pragma once

#include "model/itemcontent.h"

#include <TarvixUpdate/TXUpdatePost.h>

namespace tx {

/// What a post has once something is stored in it.
struct PostFields {
    QString title;
    QUrl postURL;
    TXUpdatePostDisplayTime displayTime = TXUpdatePostDisplayTimeDefault;
    QString endDateString;
    QString dateString;
    std::optional<TXUpdateItemConditions> conditions;
    QSizeF preferredDisplaySize{0, 0};
};

} // namespace tx

struct TXUpdatePostPrivate : tx::ItemContent<tx::PostFields> {
    using ItemContent::ItemContent;

    /// The fields of `post`, for a change: copied out of the feed's block, or from another post that shares
    /// them.
    static tx::PostFields &fieldsToChange(TXUpdatePost &post);
    /// A post that reads what it says from a feed's entry when it is asked.
    static TXUpdatePostPtr make(tx::PackedEntry entry);

private:
    struct WithItem;
};
