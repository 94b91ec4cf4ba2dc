// SPDX-License-Identifier: MIT
#include "trust/keyfiles.h"

#include "trust/encoding.h"
#include "trust/signaturetext.h"

#include <sodium/crypto_generichash_blake2b.h>
#include <sodium/crypto_pwhash_scryptsalsa208sha256.h>
#include <sodium/crypto_sign_ed25519.h>
#include <sodium/randombytes.h>
#include <sodium/utils.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace tx::trust {

namespace {

constexpr std::string_view commentPrefix = "untrusted comment: ";
constexpr std::string_view secretComment = "untrusted comment: minisign encrypted secret key\n";

// Of a secret key file: algorithms, how the passphrase becomes a key stream, and what that is laid over: the
// key's number, the key and a checksum of both.
constexpr std::string_view keyAlgorithm = "Ed";
constexpr std::string_view scrypt = "Sc";
constexpr std::string_view noPassphrase{"\0\0", 2};
constexpr std::string_view checksumAlgorithm = "B2";
constexpr size_t derivationAt = 2;
constexpr size_t checksumAlgorithmAt = 4;
constexpr size_t saltAt = 6;
constexpr size_t operationsAt = 38;
constexpr size_t memoryAt = 46;
constexpr size_t hiddenAt = 54;
constexpr size_t numberBytes = 8;
constexpr size_t secretBytes = crypto_sign_ed25519_SECRETKEYBYTES;
constexpr size_t checksumBytes = 32;
constexpr size_t hiddenBytes = numberBytes + secretBytes + checksumBytes;
constexpr size_t fileBytes = hiddenAt + hiddenBytes;

/// Of a digest, too.
std::string_view viewOf(const std::array<unsigned char, 64> &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

uint64_t readLittleEndian(const unsigned char *bytes) {
    uint64_t result = 0;
    for (unsigned i = 0; i < 8; ++i)
        result |= uint64_t(bytes[i]) << 8U * i;
    return result;
}

void writeLittleEndian(unsigned char *bytes, uint64_t number) {
    for (unsigned i = 0; i < 8; ++i)
        bytes[i] = static_cast<unsigned char>(number >> 8U * i);
}

/// Of the algorithm, the number and the key. `hidden`: the second part of a file, in the clear.
void checksum(const unsigned char *hidden, unsigned char *result) {
    crypto_generichash_blake2b_state state;
    crypto_generichash_blake2b_init(&state, nullptr, 0, checksumBytes);
    crypto_generichash_blake2b_update(&state, reinterpret_cast<const unsigned char *>(keyAlgorithm.data()),
                                      keyAlgorithm.size());
    crypto_generichash_blake2b_update(&state, hidden, numberBytes + secretBytes);
    crypto_generichash_blake2b_final(&state, result, checksumBytes);
    sodium_memzero(&state, sizeof state);
}

/// Lays the passphrase's key stream over `hidden`, or takes it away.
Verdict applyPassphrase(unsigned char *hidden, const Secret &passphrase, const unsigned char *salt,
                        const PassphraseCost &cost) {
    Secret stream(hiddenBytes);
    if (crypto_pwhash_scryptsalsa208sha256(stream.data(), stream.size(), passphrase.view().data(),
                                           passphrase.size(), salt, cost.operations,
                                           size_t(cost.memory)) != 0)
        return Fault{FaultKind::File, "there is not enough memory for a key with a passphrase, which takes " +
                                          std::to_string(cost.memory >> 20U) + " MiB"};
    for (size_t i = 0; i < hiddenBytes; ++i)
        hidden[i] ^= stream.data()[i];
    return std::nullopt;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

/// The second line of a file of two lines of which the first is a comment; empty for anything else.
std::string_view lineBelowComment(std::string_view content) {
    const size_t end = content.find('\n');
    if (!startsWith(content, commentPrefix) || end == std::string_view::npos)
        return {};
    std::string_view line = content.substr(end + 1);
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    return line;
}

} // namespace

SecretKey::SecretKey(const KeyNumber &number, Secret bytes)
    : m_bytes(std::move(bytes)) {
    m_public.number = number;
    crypto_sign_ed25519_sk_to_pk(m_public.bytes.data(), m_bytes.data());
}

SecretKey SecretKey::generate() {
    Secret bytes(secretBytes);
    KeyNumber number{};
    randombytes_buf(number.data(), number.size());
    KeyBytes unused{};
    crypto_sign_ed25519_keypair(unused.data(), bytes.data());
    return {number, std::move(bytes)};
}

SignatureBytes SecretKey::sign(std::string_view message) const {
    SignatureBytes result{};
    crypto_sign_ed25519_detached(result.data(), nullptr,
                                 reinterpret_cast<const unsigned char *>(message.data()), message.size(),
                                 m_bytes.data());
    return result;
}

std::string makeSignatureText(const SecretKey &key, const Digest &digest, const std::string &comment) {
    const SignatureBytes signature = key.sign(viewOf(digest));
    const SignatureBytes ofComment = key.sign(std::string(viewOf(signature)) + comment);
    std::array<unsigned char, 2 + 8 + 64> bytes{};
    const KeyNumber &number = key.publicKey().number;
    std::copy(prehashed.begin(), prehashed.end(), bytes.begin());
    std::copy(number.begin(), number.end(), bytes.begin() + 2);
    std::copy(signature.begin(), signature.end(), bytes.begin() + 10);
    return std::string(untrustedLine) + '\n' + base64(bytes.data(), bytes.size()) + '\n' +
           std::string(trustedPrefix) + comment + '\n' + base64(ofComment.data(), ofComment.size()) + '\n';
}

SecretKeyFile::SecretKeyFile(Secret bytes, bool isEncrypted)
    : m_bytes(std::move(bytes))
    , m_isEncrypted(isEncrypted) {}

Outcome<SecretKeyFile> SecretKeyFile::parse(std::string_view content) {
    const Fault fault{FaultKind::Keys,
                      "a secret key file of minisign was expected: a comment line and a line of Base64"};
    Secret bytes(fileBytes);
    if (!decodeSecretBase64(lineBelowComment(content), bytes.data(), bytes.size()))
        return fault;
    const std::string_view view = bytes.view();
    const bool isEncrypted = view.substr(derivationAt, 2) == scrypt;
    if (!startsWith(view, keyAlgorithm) || view.substr(checksumAlgorithmAt, 2) != checksumAlgorithm ||
        (!isEncrypted && view.substr(derivationAt, 2) != noPassphrase))
        return fault;
    return SecretKeyFile(std::move(bytes), isEncrypted);
}

Outcome<SecretKey> SecretKeyFile::open(const Secret *passphrase) const {
    if (m_isEncrypted && !passphrase)
        return Fault{FaultKind::Passphrase, "the secret key has a passphrase, and none was given"};
    Secret hidden = Secret::of(m_bytes.view().substr(hiddenAt));
    if (m_isEncrypted) {
        const PassphraseCost cost{readLittleEndian(m_bytes.data() + operationsAt),
                                  readLittleEndian(m_bytes.data() + memoryAt)};
        if (cost.operations > minisignsCost.operations || cost.memory > minisignsCost.memory)
            return Fault{FaultKind::Keys,
                         "the secret key file asks for more time or memory than minisign's do"};
        if (const Verdict failed = applyPassphrase(hidden.data(), *passphrase, m_bytes.data() + saltAt, cost))
            return *failed;
        Secret expected(checksumBytes);
        checksum(hidden.data(), expected.data());
        if (sodium_memcmp(expected.data(), hidden.data() + numberBytes + secretBytes, checksumBytes) != 0)
            return Fault{FaultKind::Passphrase, "the passphrase is wrong, or the secret key file is damaged"};
    }
    // A file without a passphrase has no checksum. A public half that is not the secret one's would make
    // signatures that give the key away.
    Secret key = Secret::of(hidden.view().substr(numberBytes, secretBytes));
    Secret again(secretBytes);
    KeyBytes publicHalf{};
    crypto_sign_ed25519_seed_keypair(publicHalf.data(), again.data(), key.data());
    if (sodium_memcmp(again.data(), key.data(), secretBytes) != 0)
        return Fault{FaultKind::Keys,
                     "the secret key file is damaged: its two halves do not belong together"};
    KeyNumber number{};
    std::copy_n(hidden.data(), number.size(), number.begin());
    return SecretKey(number, std::move(key));
}

Outcome<Secret> SecretKeyFile::write(const SecretKey &key, const Secret *passphrase,
                                     const PassphraseCost &cost) {
    if (passphrase && passphrase->size() == 0)
        return Fault{FaultKind::Passphrase, "the passphrase is empty"};
    Secret bytes(fileBytes);
    const auto put = [&](size_t at, std::string_view part) {
        std::copy(part.begin(), part.end(), bytes.data() + at);
    };
    put(0, keyAlgorithm);
    put(derivationAt, passphrase ? scrypt : noPassphrase);
    put(checksumAlgorithmAt, checksumAlgorithm);
    unsigned char *hidden = bytes.data() + hiddenAt;
    std::copy(key.m_public.number.begin(), key.m_public.number.end(), hidden);
    put(hiddenAt + numberBytes, key.m_bytes.view());
    if (passphrase) {
        randombytes_buf(bytes.data() + saltAt, operationsAt - saltAt);
        writeLittleEndian(bytes.data() + operationsAt, cost.operations);
        writeLittleEndian(bytes.data() + memoryAt, cost.memory);
        checksum(hidden, hidden + numberBytes + secretBytes);
        if (const Verdict failed = applyPassphrase(hidden, *passphrase, bytes.data() + saltAt, cost))
            return *failed;
    }
    // Straight into memory that is overwritten later.
    const size_t length = sodium_base64_ENCODED_LEN(fileBytes, sodium_base64_VARIANT_ORIGINAL);
    Secret result(secretComment.size() + length);
    std::copy(secretComment.begin(), secretComment.end(), result.data());
    sodium_bin2base64(reinterpret_cast<char *>(result.data()) + secretComment.size(), length, bytes.data(),
                      bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    result.data()[result.size() - 1] = '\n'; // in the place of the terminating NUL
    return result;
}

std::string publicKeyFile(const PublicKey &key) {
    return std::string(commentPrefix) + "minisign public key " + keyNumberText(key.number) + '\n' +
           keyLine(key) + '\n';
}

Outcome<PublicKey> parsePublicKeyFile(std::string_view content) {
    const std::optional<PublicKey> key = parseKeyLine(lineBelowComment(content));
    if (!key)
        return Fault{FaultKind::Keys,
                     "a public key file of minisign was expected: a comment line and a line of Base64"};
    return *key;
}

} // namespace tx::trust
