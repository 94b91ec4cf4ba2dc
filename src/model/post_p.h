// SPDX-License-Identifier: MIT
#pragma once

#include "model/itemcontent.h"

#include <TarvixUpdate/TXUpdatePost.h>

namespace tx {

/// A post's own fields, which it gets with its first change.
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

    /// Returns the fields of `post` for writing. Copies them first if they are still in the feed's block or
    /// shared with another post.
    static tx::PostFields &fieldsToChange(TXUpdatePost &post);
    /// Makes a post that reads its values from a feed's entry on request.
    static TXUpdatePostPtr make(tx::PackedEntry entry);

private:
    struct WithItem;
};
