// SPDX-License-Identifier: MIT
#pragma once

#include "model/packedentries.h"

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

/// True when the entry names an archive or a page; what both kinds of feed require of an update.
[[nodiscard]] bool hasAddress(const FeedEntry &entry);

/// Says in the log, for developers, that the entry's date is missing or unreadable. Costs nothing otherwise.
void logMissingDate(const FeedEntry &entry);

/// Whether an update has a record of conditions: those of one kind of feed have, even when it is empty.
enum class WithConditions : bool { No, Yes };

/// The update that an entry of a feed describes; `isSecure` when the feed came from an https URL. Thread:
/// any; the update belongs to the main thread.
[[nodiscard]] TXUpdatePtr updateFrom(const FeedEntry &entry, WithConditions conditions,
                                     bool isSecure = false);
[[nodiscard]] QList<TXUpdatePtr> updatesFrom(const PackedEntries &entries, WithConditions conditions,
                                             bool isSecure);

} // namespace tx
