// SPDX-License-Identifier: MIT
#include "trust/publickeys.h"

#include "trust/encoding.h"
#include "trust/secret.h"

#include <sodium/crypto_core_ed25519.h>

#include <algorithm>

namespace tx::trust {

namespace {

constexpr std::string_view algorithm = "Ed"; // of a key; signatures say ED when they are prehashed
constexpr size_t lineBytes = 2 + 8 + 32;

struct Prefix {
    std::string_view text;
    KeyUse use;
};
constexpr std::array<Prefix, 3> prefixes{{{"minisign:", KeyUse::ArchivesAndFeeds},
                                          {"minisign-feed:", KeyUse::Feeds},
                                          {"plain:", KeyUse::PlainArchives}}};

/// Points of small order verify signatures that nobody made.
bool isGoodKey(const KeyBytes &bytes) { return crypto_core_ed25519_is_valid_point(bytes.data()) == 1; }

std::optional<PublicKey> parsePlainKey(std::string_view text) {
    PublicKey key;
    key.use = KeyUse::PlainArchives;
    if (!decodeBase64(text, key.bytes.data(), key.bytes.size()) || !isGoodKey(key.bytes))
        return std::nullopt;
    return key;
}

Outcome<PublicKey> parseKey(const std::string &text) {
    for (const Prefix &prefix : prefixes) {
        if (text.compare(0, prefix.text.size(), prefix.text) != 0)
            continue;
        const std::string_view rest = std::string_view(text).substr(prefix.text.size());
        const bool isPlain = prefix.use == KeyUse::PlainArchives;
        std::optional<PublicKey> key = isPlain ? parsePlainKey(rest) : parseKeyLine(rest);
        if (!key)
            return Fault{FaultKind::Keys,
                         "\"" + shown(text) + "\" is not a public key: behind \"" + std::string(prefix.text) +
                             (isPlain ? "\" there must be the Base64 of an Ed25519 key's 32 bytes"
                                      : "\" there must be the second line of a .pub file") +
                             ", without blanks"};
        key->use = prefix.use;
        return *key;
    }
    return Fault{FaultKind::Keys,
                 "\"" + shown(text) +
                     "\" does not begin with \"minisign:\", \"minisign-feed:\" or \"plain:\""};
}

bool isSameNumber(const PublicKey &a, const PublicKey &b) {
    return a.use != KeyUse::PlainArchives && b.use != KeyUse::PlainArchives && a.number == b.number;
}

} // namespace

std::string keyNumberText(const KeyNumber &number) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (auto byte = number.rbegin(); byte != number.rend(); ++byte) {
        result += digits[*byte >> 4U];
        result += digits[*byte & 0xFU];
    }
    return result;
}

std::optional<PublicKey> parseKeyLine(std::string_view line) {
    std::array<unsigned char, lineBytes> bytes{};
    if (!decodeBase64(line, bytes.data(), bytes.size()))
        return std::nullopt;
    if (!std::equal(algorithm.begin(), algorithm.end(), bytes.begin()))
        return std::nullopt;
    PublicKey key;
    std::copy_n(bytes.begin() + 2, key.number.size(), key.number.begin());
    std::copy_n(bytes.begin() + 10, key.bytes.size(), key.bytes.begin());
    if (!isGoodKey(key.bytes))
        return std::nullopt;
    return key;
}

std::string keyLine(const PublicKey &key) {
    std::array<unsigned char, lineBytes> bytes{};
    std::copy(algorithm.begin(), algorithm.end(), bytes.begin());
    std::copy(key.number.begin(), key.number.end(), bytes.begin() + 2);
    std::copy(key.bytes.begin(), key.bytes.end(), bytes.begin() + 10);
    return base64(bytes.data(), bytes.size());
}

Outcome<PublicKeys> PublicKeys::parse(const std::vector<std::string> &texts) {
    const auto fault = [](const std::string &what) {
        return Fault{FaultKind::Keys, "TXUpdatePublicKeys: " + what};
    };
    if (!sodiumIsReady())
        return fault("the cryptographic library cannot be set up on this machine");
    if (texts.empty())
        return fault("the list is empty. Name at least one key, or remove the list");
    if (texts.size() > most)
        return fault("at most 16 keys are possible, these are " + std::to_string(texts.size()));
    PublicKeys result;
    for (const std::string &text : texts) {
        const std::string place = "key " + std::to_string(result.m_keys.size() + 1);
        const Outcome<PublicKey> key = parseKey(text);
        if (!key)
            return fault(place + ": " + key.fault().what);
        for (size_t i = 0; i < result.m_keys.size(); ++i) {
            const std::string other = " as key " + std::to_string(i + 1) + ". Each key may be named once";
            if (result.m_keys[i].bytes == key->bytes)
                return fault(place + " has the same bytes" + other);
            if (isSameNumber(result.m_keys[i], *key))
                return fault(place + " has the same number" + other);
        }
        result.m_keys.push_back(*key);
    }
    return result;
}

const PublicKey *PublicKeys::archiveKey(const KeyNumber &number) const {
    const auto found = std::find_if(m_keys.begin(), m_keys.end(), [&](const PublicKey &key) {
        return key.use == KeyUse::ArchivesAndFeeds && key.number == number;
    });
    return found == m_keys.end() ? nullptr : &*found;
}

const PublicKey *PublicKeys::feedKey(const KeyNumber &number) const {
    const auto found = std::find_if(m_keys.begin(), m_keys.end(), [&](const PublicKey &key) {
        return key.use != KeyUse::PlainArchives && key.number == number;
    });
    return found == m_keys.end() ? nullptr : &*found;
}

bool PublicKeys::canSignFeeds() const {
    return std::any_of(m_keys.begin(), m_keys.end(),
                       [](const PublicKey &key) { return key.use != KeyUse::PlainArchives; });
}

} // namespace tx::trust
