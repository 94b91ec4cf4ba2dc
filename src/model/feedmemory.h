// SPDX-License-Identifier: MIT
#pragma once

#include "trust/freshness.h"

#include <TarvixUpdate/TXError.h>

#include <cstdint>
#include <optional>
#include <string>

/// What a host remembers of signed feeds, in its settings. Thread: any.
namespace tx {

/// The serial of the newest feed of this name that the host has accepted; absent before the first, and when
/// what is stored is not a serial, which is logged.
[[nodiscard]] std::optional<uint64_t> storedSerial(const std::string &feedName);

/// Judges a feed that was verified by the newest one of its name, and remembers its serial when it is fresh.
/// Of feeds that several processes receive in the same instant an older one neither counts behind a newer one
/// nor takes its place. A fresh one ends what tellsOfFeedTrouble() counts.
[[nodiscard]] trust::FreshnessVerdict rememberFeed(const trust::FeedClaim &claim, int64_t now);

/// To be called with the error of a check that nobody asked for. True when its user is to be told all the
/// same: for 14 days only feeds have come that the host could not use, and the user was not told in the last
/// 14. An error that is not about a feed that has come changes nothing.
[[nodiscard]] bool tellsOfFeedTrouble(const TXError &error);

} // namespace tx
