// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace tx::trust {

using KeyNumber = std::array<unsigned char, 8>;
using KeyBytes = std::array<unsigned char, 32>;
/// An Ed25519 signature.
using SignatureBytes = std::array<unsigned char, 64>;

/// What a key may sign.
enum class KeyUse {
    ArchivesAndFeeds, ///< "minisign:"
    Feeds,            ///< "minisign-feed:", for the machine that signs the feed again
    PlainArchives     ///< "plain:", whose signatures are over the archive's bytes, without a comment
};

struct PublicKey {
    KeyUse use = KeyUse::ArchivesAndFeeds;
    KeyNumber number{}; ///< zeroes for a plain one, which has none
    KeyBytes bytes{};
};

/// As minisign writes it: 16 hexadecimal digits.
[[nodiscard]] std::string keyNumberText(const KeyNumber &number);

/// minisign's public key line, and back. Absent unless it is one, of a key that can sign anything.
[[nodiscard]] std::optional<PublicKey> parseKeyLine(std::string_view line);
[[nodiscard]] std::string keyLine(const PublicKey &key);

/// The keys of an application: at least one and at most 16, no two of the same number or bytes.
class PublicKeys {
public:
    static constexpr size_t most = 16;

    /// Parses the values of TXUpdatePublicKeys. Fault: Keys, with the index (from 1) and advice.
    static Outcome<PublicKeys> parse(const std::vector<std::string> &texts);

    [[nodiscard]] const std::vector<PublicKey> &all() const { return m_keys; }
    /// The key of that number when it may sign archives, or feeds; null otherwise.
    [[nodiscard]] const PublicKey *archiveKey(const KeyNumber &number) const;
    [[nodiscard]] const PublicKey *feedKey(const KeyNumber &number) const;
    /// True when a feed can be signed by one of them, and so is expected to be.
    [[nodiscard]] bool canSignFeeds() const;

private:
    std::vector<PublicKey> m_keys;
};

} // namespace tx::trust
