// SPDX-License-Identifier: MIT
#pragma once

#include "trust/feeds.h"

#include <cstdint>
#include <optional>

/// Decides whether a verified feed is the newest one, as far as a host can know. Times are seconds since
/// 1970.
namespace tx::trust {

/// How far serials may be ahead of the clock.
inline constexpr int64_t aDay = int64_t(24) * 3600;

/// The later of the system's clock and the date at which the application was built: a clock that was lost, as
/// in a machine with an empty battery, is never before the application. Serials never move it.
[[nodiscard]] int64_t trustedNow(int64_t systemClock, std::optional<int64_t> buildDate);

enum class Freshness {
    Fresh,
    AheadOfClock, ///< signed more than a day after now: the clock is wrong, or the signer's was
    Older,        ///< than one that this host has seen; a server lags, or repeats an old feed
    Expired
};

struct FreshnessVerdict {
    Freshness freshness = Freshness::Fresh;
    /// The stored serial was more than a day ahead of now and did not count; for the log.
    bool ignoredStored = false;
};

/// `stored`: the serial of the last fresh feed of the same identifier and name, whichever key signed it. When
/// the feed is fresh the host stores its serial. The last second of the validity counts.
[[nodiscard]] FreshnessVerdict judgeFreshness(const FeedClaim &claim, std::optional<uint64_t> stored,
                                              int64_t now);

/// The time since which a host has received only unusable feeds, and the time when it last told its user.
struct FeedTrouble {
    std::optional<int64_t> since;
    std::optional<int64_t> told;

    friend bool operator==(const FeedTrouble &, const FeedTrouble &) = default;
};
struct TroubleVerdict {
    FeedTrouble stored; ///< to be stored
    bool tells = false; ///< the user should be told about this automatic check
};
/// After an automatic check for which a feed has come; when none comes, nothing changes. `isUsable`: it could
/// be verified and was fresh. True for telling after a fortnight without a usable feed, and once a fortnight
/// then.
[[nodiscard]] TroubleVerdict noteFeed(const FeedTrouble &trouble, bool isUsable, int64_t now);

} // namespace tx::trust
