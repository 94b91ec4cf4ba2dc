// SPDX-License-Identifier: MIT
#pragma once

#include "trust/firstline.h"
#include "trust/signaturetext.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tx::trust {

/// What a feed's signature says of it.
struct FeedClaim {
    std::string bundle;             ///< identifier of the application
    std::string feed;               ///< the feed's name
    uint64_t serial = 0;            ///< seconds since 1970
    std::optional<int64_t> expires; ///< seconds since 1970; absent: never

    friend bool operator==(const FeedClaim &, const FeedClaim &) = default;
};

/// A feed may be valid for so long after its serial. Seconds.
inline constexpr int64_t longestValidity = int64_t(400) * 24 * 3600;

/// The trusted comment of a claim, and back. Fault: Signature, also for an expiry beyond the longest
/// validity.
[[nodiscard]] std::string feedComment(const FeedClaim &claim);
Outcome<FeedClaim> parseFeedComment(const Words &words);

/// For which host a feed is.
struct WantedFeed {
    std::string bundle;
    std::string feed;
};

/// A feed that one of the application's keys has signed. Only verify() creates one. It may still be old or
/// expired: see judgeFreshness() (src/trust/freshness.h).
class VerifiedFeed {
public:
    /// `document` is the server's response after content decoding. verify() prepares the parser's input in
    /// place, which overwrites the end of the first line. It does not change a document that it refuses.
    /// Faults: Unsigned, FeedLine, Signature, Forged, Mismatch.
    static Outcome<VerifiedFeed> verify(const PublicKeys &keys, std::span<char> document,
                                        const WantedFeed &wanted);

    [[nodiscard]] const FeedClaim &claim() const { return m_claim; }
    [[nodiscard]] FeedFormat format() const { return m_format; }
    /// Offset in `document` at which the parser's input begins. The input ends with the document.
    [[nodiscard]] size_t documentAt() const { return m_documentAt; }

private:
    VerifiedFeed() = default;

    FeedClaim m_claim;
    FeedFormat m_format = FeedFormat::Json;
    size_t m_documentAt = 0;
};

} // namespace tx::trust
