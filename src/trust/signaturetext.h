// SPDX-License-Identifier: MIT
#pragma once

#include "trust/digest.h"
#include "trust/publickeys.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
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

/// The words of a trusted comment. Each name occurs only once. A view: the comment must outlive it.
class Words {
public:
    /// Fault: Signature.
    static Outcome<Words> parse(std::string_view comment);

    /// The first word, which names the signature's purpose.
    [[nodiscard]] std::string_view first() const;
    /// The value as written; absent if no word after the first has this name.
    [[nodiscard]] std::optional<std::string_view> value(std::string_view name) const;
    /// Returns whether both have the same first word and the same other words in any order.
    [[nodiscard]] bool isSame(const Words &other) const;

private:
    friend struct SignatureText;
    explicit Words(std::string_view comment)
        : m_comment(comment) {}

    std::string_view m_comment;
};

/// One parsed signature. It proves nothing until it is verified.
struct SignatureText {
    KeyNumber number{};
    SignatureBytes signature{};        ///< over the digest
    std::string comment;               ///< the trusted one
    SignatureBytes commentSignature{}; ///< over `signature` and `comment`

    /// Of `comment`, which parse() has checked. They are valid until it changes.
    [[nodiscard]] Words words() const { return Words(comment); }

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

[[nodiscard]] std::vector<std::string_view> viewsOf(const std::vector<std::string> &texts);

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
Outcome<std::vector<UsableText>> usableTexts(std::span<const std::string_view> texts,
                                             std::string_view firstWord, const PublicKeys &keys,
                                             KeyLookup keyOf, Comments comments = Comments::Verified);

/// Verifies that each of the signatures signs `digest`. Fault: Forged. `what` is "archive" or "feed" for its
/// message.
[[nodiscard]] Verdict verifyAll(const std::vector<UsableText> &texts, const Digest &digest,
                                const std::string &what);

} // namespace tx::trust
