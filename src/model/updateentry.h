// SPDX-License-Identifier: MIT
#pragma once

#include "model/packedentries.h"

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

/// Whether the entry has a build, and the URL of an archive or of a page: both kinds of feed require that of
/// an update. If not, `failureReason`, which may be null, is set to `noBuild` or `noURL`.
[[nodiscard]] bool hasWhatAnUpdateNeeds(const FeedEntry &entry, const QString &noBuild, const QString &noURL,
                                        QString *failureReason);

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
