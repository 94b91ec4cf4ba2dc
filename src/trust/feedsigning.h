// SPDX-License-Identifier: MIT
#pragma once

#include "trust/feeds.h"
#include "trust/keyfiles.h"

#include <vector>

namespace tx::trust {

/// Signs a feed for publishers.
struct FeedSigning {
    std::string bundle;
    std::string feed;
    int64_t now = 0;                       ///< seconds since 1970
    std::optional<int64_t> validDays = 60; ///< 1 to 400; absent: the signature does not expire
};

struct SignedFeedDocument {
    std::string document;
    FeedClaim claim;
    std::optional<uint64_t> previousSerial; ///< of the line that was replaced
};

/// `document`: a feed in UTF-8, with or without byte order mark, XML declaration and an earlier signature,
/// which is replaced. The serial is now, or one more than the earlier one's, which is not verified but may be
/// at most a day ahead. An empty JSON feed gets an empty track, "release", as readers expect a member behind
/// the first line's comma. The result has been verified with the keys' public halves. Faults: Input,
/// Signature, FeedLine.
Outcome<SignedFeedDocument> signFeed(std::string_view document, FeedFormat format,
                                     const std::vector<const SecretKey *> &keys, const FeedSigning &signing);

} // namespace tx::trust
