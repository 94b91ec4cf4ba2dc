// SPDX-License-Identifier: MIT
#pragma once

#include "trust/digest.h"
#include "trust/publickeys.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Signature texts: four lines in minisign's format, each ended by a line feed.
namespace tx::trust {

/// The first words, which say what a signature is for.
inline constexpr std::string_view archiveWord = "txupdate-archive:1";
inline constexpr std::string_view feedWord = "txupdate-feed:1";

/// All texts of one archive or feed together. Bytes.
inline constexpr size_t mostTextBytes = 64 << 10;
inline constexpr size_t mostTexts = 8;

/// The parts of a text that are the same in all.
inline constexpr std::string_view untrustedLine = "untrusted comment: txupdate";
inline constexpr std::string_view trustedPrefix = "trusted comment: ";
inline constexpr std::string_view prehashed = "ED"; ///< minisign's word for a signature over a digest

/// The words behind the first one, in the order of the comment. No name occurs twice.
class Words {
public:
    /// Of a trusted comment. Fault: Signature.
    static Outcome<Words> parse(std::string_view comment);

    [[nodiscard]] const std::string &first() const { return m_first; }
    /// As it is written; null when there is no such word.
    [[nodiscard]] const std::string *value(std::string_view name) const;
    /// True when both have the same words, in whatever order, behind the same first one.
    [[nodiscard]] bool isSame(const Words &other) const;

private:
    std::string m_first;
    std::vector<std::pair<std::string, std::string>> m_words;
};

/// One signature text, taken apart. It proves nothing before its signatures are verified.
struct SignatureText {
    KeyNumber number{};
    SignatureBytes signature{};        ///< over the digest
    std::string comment;               ///< the trusted one
    SignatureBytes commentSignature{}; ///< over `signature` and `comment`
    Words words;

    /// Fault: Signature, with what was found and what to do.
    static Outcome<SignatureText> parse(std::string_view text);

    [[nodiscard]] bool verifyComment(const PublicKey &key) const;
    [[nodiscard]] bool verify(const Digest &digest, const PublicKey &key) const;
};

/// Texts one after the other, taken apart at every fourth line. Fault: Signature, unless all are complete.
Outcome<std::vector<std::string>> splitTexts(std::string_view joined);
/// The same with each line feed written as "\n", as in an appcast and in the first line of a feed.
Outcome<std::vector<std::string>> splitEscapedTexts(std::string_view escaped);
[[nodiscard]] std::string escapeLineFeeds(std::string_view text);

/// A text whose comment one of the application's keys has signed, and that key.
struct UsableText {
    PublicKey key;
    SignatureText text;
};

/// Whether the comments of texts are verified when these are chosen. What is unverified must not be relied
/// on.
enum class Comments { Verified, Unverified };

/// Those of several texts that count: by a key that `keyOf` knows, with `firstWord`. Their comments are
/// verified and all have the same words. At least one. Faults: Signature, Unsigned, Forged, Mismatch.
using KeyLookup = const PublicKey *(PublicKeys::*)(const KeyNumber &number) const;
Outcome<std::vector<UsableText>> usableTexts(const std::vector<std::string> &texts,
                                             std::string_view firstWord, const PublicKeys &keys,
                                             KeyLookup keyOf, Comments comments = Comments::Verified);

/// Whether every one of the texts signs `digest`. Fault: Forged. `what`: "archive" or "feed", for the fault.
[[nodiscard]] Verdict verifyAll(const std::vector<UsableText> &texts, const Digest &digest,
                                const std::string &what);

} // namespace tx::trust
