// SPDX-License-Identifier: MIT
#pragma once

#include "trust/signaturetext.h"

#include <optional>
#include <string>
#include <vector>

namespace tx::trust {

/// What a signature says about an archive.
struct ArchiveClaim {
    std::string bundle; ///< identifier of the application in it
    std::string build;
    uint64_t size = 0;               ///< bytes
    std::optional<std::string> feed; ///< the only feed that it may be offered by, when there is one

    friend bool operator==(const ArchiveClaim &, const ArchiveClaim &) = default;
};

/// The trusted comment of a claim, and back. Fault: Signature.
[[nodiscard]] std::string archiveComment(const ArchiveClaim &claim);
Outcome<ArchiveClaim> parseArchiveComment(const Words &words);

/// The signature attribute that appcasts have had for long: Ed25519 over the archive's bytes.
struct PlainSignature {
    SignatureBytes bytes{};
    uint64_t size = 0; ///< the archive's, of the enclosure's "length"

    /// `signature`: Base64. Fault: Signature.
    static Outcome<PlainSignature> parse(std::string_view signature, std::string_view length);
};

/// What an entry of a feed says about the signatures of its archive.
struct ArchiveSignatures {
    std::vector<std::string> texts;
    std::optional<PlainSignature> plain;
};

/// What an archive is wanted for. Absent: not known here, and not compared.
struct WantedArchive {
    std::string bundle;
    std::optional<std::string> build;
    std::optional<std::string> feed;
};

/// What must hold of an archive before it is unpacked, according to signatures that an application's keys
/// have made: known, and its comment verified, before the first byte of the archive is fetched.
///
///     const auto proof = ArchiveProof::find(keys, signatures, {identifier, build, feedName});
///     ... download at most proof->size() bytes, feed them to a DigestStream ...
///     if (const Verdict refused = proof->check(stream)) ...
class ArchiveProof {
public:
    /// Finds a valid signature. The plain signature is used only if there is no other usable one. Faults:
    /// Unsigned, Signature, Forged, Mismatch.
    static Outcome<ArchiveProof> find(const PublicKeys &keys, const ArchiveSignatures &signatures,
                                      const WantedArchive &wanted);

    /// Does those checks of find() that need no verification. Verifying a signature takes a hundred times as
    /// long, so only the chosen entry of a feed is verified.
    [[nodiscard]] static Verdict examine(const PublicKeys &keys, std::span<const std::string_view> texts,
                                         const std::optional<PlainSignature> &plain,
                                         const WantedArchive &wanted);

    /// Absent with a plain signature, which says nothing of identifier and build.
    [[nodiscard]] const std::optional<ArchiveClaim> &claim() const { return m_claim; }
    /// Size of the archive in bytes. With a claim, a key has signed this size; with a plain signature, it is
    /// the feed's statement.
    [[nodiscard]] uint64_t size() const { return m_size; }
    /// Compares a download with the signed archive. Also succeeds if only the bytes themselves could show a
    /// difference, as with a plain signature. This is meant to detect a bad download early; everything is
    /// verified again before it is unpacked. Faults: Mismatch, Forged.
    [[nodiscard]] Verdict check(const DigestStream &archive) const;

private:
    friend class VerifiedArchive;
    static Outcome<ArchiveProof> find(const PublicKeys &keys, std::span<const std::string_view> texts,
                                      const std::optional<PlainSignature> &plain, const WantedArchive &wanted,
                                      Comments comments);
    /// Compares the bytes themselves, which only a plain signature needs.
    [[nodiscard]] Verdict checkBytes(const unsigned char *bytes, size_t size) const;
    [[nodiscard]] bool needsBytes() const { return !m_claim; }

    std::optional<ArchiveClaim> m_claim;
    uint64_t m_size = 0;
    std::vector<UsableText> m_texts;
    SignatureBytes m_plain{};
    std::vector<PublicKey> m_plainKeys;
};

} // namespace tx::trust
