// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateItem.h>

namespace tx {

class FeedEntry;

/// The conditions of an entry that a reader is at. Thread: any.
[[nodiscard]] TXUpdateItemConditions conditionsFrom(const FeedEntry &entry);

} // namespace tx
