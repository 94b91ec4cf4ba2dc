// SPDX-License-Identifier: MIT
#include "trust/freshness.h"

#include <algorithm>

namespace tx::trust {

namespace {

constexpr int64_t fortnight = 14 * aDay;

} // namespace

int64_t trustedNow(int64_t systemClock, std::optional<int64_t> buildDate) {
    return std::max(systemClock, buildDate.value_or(systemClock));
}

FreshnessVerdict judgeFreshness(const FeedClaim &claim, std::optional<uint64_t> stored, int64_t now) {
    // Serials can be larger than any time.
    const uint64_t latest = static_cast<uint64_t>(std::max<int64_t>(now, 0)) + uint64_t(aDay);
    FreshnessVerdict verdict;
    verdict.ignoredStored = stored && *stored > latest;
    if (claim.serial > latest)
        verdict.freshness = Freshness::AheadOfClock;
    else if (stored && !verdict.ignoredStored && claim.serial < *stored)
        verdict.freshness = Freshness::Older;
    else if (claim.expires && now > *claim.expires)
        verdict.freshness = Freshness::Expired;
    return verdict;
}

TroubleVerdict noteFeed(const FeedTrouble &trouble, bool isUsable, int64_t now) {
    if (isUsable)
        return {};
    TroubleVerdict verdict{trouble, false};
    // A time in the future is one of a clock that was set back.
    if (!trouble.since || *trouble.since > now)
        verdict.stored.since = now;
    if (trouble.told && *trouble.told > now)
        verdict.stored.told.reset();
    const bool isLong = now - *verdict.stored.since >= fortnight;
    const bool wasToldLately = verdict.stored.told && now - *verdict.stored.told < fortnight;
    verdict.tells = isLong && !wasToldLately;
    if (verdict.tells)
        verdict.stored.told = now;
    return verdict;
}

} // namespace tx::trust
