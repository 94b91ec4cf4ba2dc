// SPDX-License-Identifier: MIT
#pragma once

#include "trust/digest.h"
#include "trust/publickeys.h"
#include "trust/secret.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// minisign's key files. For publishers: hosts and the installer never hold a secret key.
namespace tx::trust {

/// The key that signs.
class SecretKey {
public:
    /// A new one.
    static SecretKey generate();

    [[nodiscard]] const PublicKey &publicKey() const { return m_public; }
    [[nodiscard]] SignatureBytes sign(std::string_view message) const;

private:
    friend class SecretKeyFile;
    SecretKey(const KeyNumber &number, Secret bytes);

    PublicKey m_public;
    Secret m_bytes; ///< seed and public half, as libsodium has them
};

/// The signature text of a digest with this trusted comment.
[[nodiscard]] std::string makeSignatureText(const SecretKey &key, const Digest &digest,
                                            const std::string &comment);

/// What it takes to try one passphrase.
struct PassphraseCost {
    uint64_t operations;
    uint64_t memory; ///< bytes
};
/// minisign's: about three seconds and 1 GiB.
inline constexpr PassphraseCost minisignsCost{33554432, 1073741824};

/// A secret key as minisign writes it to a file, encrypted by a passphrase or not.
class SecretKeyFile {
public:
    static constexpr size_t mostBytes = 4096;

    /// Fault: Keys, if `content` is not such a file. The content is copied to memory that is overwritten
    /// after use.
    static Outcome<SecretKeyFile> parse(std::string_view content);

    [[nodiscard]] bool isEncrypted() const { return m_isEncrypted; }
    /// The key in it. `passphrase`: null without one. Faults: Passphrase, also when one is given and none is
    /// needed; Keys for a damaged file or one that would take more than minisign's cost; File without memory.
    Outcome<SecretKey> open(const Secret *passphrase) const;

    /// The content of a new file. `passphrase`: null leaves the key unencrypted. An empty one is refused.
    static Outcome<Secret> write(const SecretKey &key, const Secret *passphrase,
                                 const PassphraseCost &cost = minisignsCost);

private:
    SecretKeyFile(Secret bytes, bool isEncrypted);

    Secret m_bytes;
    bool m_isEncrypted;
};

/// The content of minisign's public key file, and the key in one. Fault: Keys.
[[nodiscard]] std::string publicKeyFile(const PublicKey &key);
Outcome<PublicKey> parsePublicKeyFile(std::string_view content);

} // namespace tx::trust
