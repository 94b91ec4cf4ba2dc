// SPDX-License-Identifier: MIT
#pragma once

#include "trust/freshness.h"

#include <TarvixUpdate/TXError.h>

#include <cstdint>
#include <optional>
#include <string>

/// What a host stores in its settings about signed feeds. Thread: any.
namespace tx {

/// The serial of the newest feed of this name that the host has accepted. Absent before the first one, and if
/// the stored value is not a serial; the latter is logged.
[[nodiscard]] std::optional<uint64_t> storedSerial(const std::string &feedName);

/// Compares a verified feed with the newest accepted feed of its name, and stores its serial if it is fresh.
/// This also holds if several processes receive feeds at the same time: once one has accepted a newer feed,
/// no process accepts an older one. A fresh feed resets the period that tellsOfFeedTrouble() measures.
[[nodiscard]] trust::FreshnessVerdict rememberFeed(const trust::FeedClaim &claim, int64_t now);

/// Call this with the error of an automatic check. Returns true if the user should be told anyway: all feeds
/// of the last 14 days were unusable, and the user has not been told in the last 14 days. An error that is
/// not about a received feed changes nothing.
[[nodiscard]] bool tellsOfFeedTrouble(const TXError &error);

} // namespace tx
