// SPDX-License-Identifier: MIT
#pragma once

#include "trust/digest.h"
#include "trust/publickeys.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Signatures as text: four lines in minisign's format, each terminated by a line feed.
namespace tx::trust {

/// The first word of a trusted comment, which names the signature's purpose.
inline constexpr std::string_view archiveWord = "txupdate-archive:1";
inline constexpr std::string_view feedWord = "txupdate-feed:1";

/// The largest size in bytes of all signatures of one archive or feed.
inline constexpr size_t mostTextBytes = 64 << 10;
inline constexpr size_t mostTexts = 8;

/// The parts of a text that are the same in all.
inline constexpr std::string_view untrustedLine = "untrusted comment: txupdate";
inline constexpr std::string_view trustedPrefix = "trusted comment: ";
inline constexpr std::string_view prehashed = "ED"; ///< minisign's word for a signature over a digest

/// The words after the first one, in the comment's order. Each name occurs only once.
class Words {
public:
    /// Of a trusted comment. Fault: Signature.
    static Outcome<Words> parse(std::string_view comment);

    [[nodiscard]] const std::string &first() const { return m_first; }
    /// The value as written; null if there is no such word.
    [[nodiscard]] const std::string *value(std::string_view name) const;
    /// Returns whether both have the same first word and the same other words in any order.
    [[nodiscard]] bool isSame(const Words &other) const;

private:
    std::string m_first;
    std::vector<std::pair<std::string, std::string>> m_words;
};

/// One parsed signature. It proves nothing until it is verified.
struct SignatureText {
    KeyNumber number{};
    SignatureBytes signature{};        ///< over the digest
    std::string comment;               ///< the trusted one
    SignatureBytes commentSignature{}; ///< over `signature` and `comment`
    Words words;

    /// Fault: Signature, with what was found and advice.
    static Outcome<SignatureText> parse(std::string_view text);

    [[nodiscard]] bool verifyComment(const PublicKey &key) const;
    [[nodiscard]] bool verify(const Digest &digest, const PublicKey &key) const;
};

/// Splits concatenated signatures after every fourth line. Fault: Signature, if one is incomplete.
Outcome<std::vector<std::string>> splitTexts(std::string_view joined);
/// As above for signatures in which "\n" replaces each line feed, as in an appcast and in the first line of a
/// feed.
Outcome<std::vector<std::string>> splitEscapedTexts(std::string_view escaped);
[[nodiscard]] std::string escapeLineFeeds(std::string_view text);

/// A text whose comment one of the application's keys has signed, and that key.
struct UsableText {
    PublicKey key;
    SignatureText text;
};

/// Whether the comments of the chosen signatures are verified. Unverified comments must not be trusted.
enum class Comments { Verified, Unverified };

/// Chooses the usable ones of several signatures: those with `firstWord`, by a key that `keyOf` finds.
/// Returns at least one. Their comments are verified and have the same words. Faults: Signature, Unsigned,
/// Forged, Mismatch.
using KeyLookup = const PublicKey *(PublicKeys::*)(const KeyNumber &number) const;
Outcome<std::vector<UsableText>> usableTexts(const std::vector<std::string> &texts,
                                             std::string_view firstWord, const PublicKeys &keys,
                                             KeyLookup keyOf, Comments comments = Comments::Verified);

/// Verifies that each of the signatures signs `digest`. Fault: Forged. `what` is "archive" or "feed" for its
/// message.
[[nodiscard]] Verdict verifyAll(const std::vector<UsableText> &texts, const Digest &digest,
                                const std::string &what);

} // namespace tx::trust
