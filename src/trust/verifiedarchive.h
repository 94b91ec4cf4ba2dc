// SPDX-License-Identifier: MIT
#pragma once

#include "posix/privatefile.h"
#include "trust/archives.h"

namespace tx::trust {

/// An archive whose every byte the application's keys have signed, in a copy that nobody else can write to.
/// Unpackers should accept only this type. Only make() creates one.
///
/// Ownership: it owns the descriptor of the copy. The copy has no name and is deleted with the object.
class VerifiedArchive {
public:
    /// Copies the file of the descriptor `source` from its start, or from its position if it cannot be
    /// rewound, and verifies the copy. Changes to the source during the copy have no effect or are detected.
    /// `folder` is an open folder on a file system with room for the copy. Reads the archive once; with a
    /// plain signature, also reads the copy in memory once. Faults: File; Mismatch for a different size;
    /// Forged.
    static Outcome<VerifiedArchive> make(const PublicKeys &keys, const ArchiveSignatures &signatures,
                                         const WantedArchive &wanted, int source, int folder,
                                         PrivateFiles &files);

    VerifiedArchive(VerifiedArchive &&other) noexcept;
    VerifiedArchive &operator=(VerifiedArchive &&other) noexcept;
    VerifiedArchive(const VerifiedArchive &) = delete;
    VerifiedArchive &operator=(const VerifiedArchive &) = delete;
    ~VerifiedArchive();

    /// Reads the copy and cannot write it. It has one position, for all who use it: begin with lseek or use
    /// pread.
    [[nodiscard]] int descriptor() const { return m_descriptor; }
    [[nodiscard]] uint64_t size() const { return m_proof.size(); }
    /// Absent with a plain signature.
    [[nodiscard]] const std::optional<ArchiveClaim> &claim() const { return m_proof.claim(); }
    /// The signatures that verified it. The program that runs as root verifies the archive with them again.
    [[nodiscard]] const ArchiveSignatures &signatures() const { return m_signatures; }

    /// Checks that the unpacked application may replace the installed one: its identifier and build are those
    /// of the signature (with a plain signature: the wanted ones), and one of its own keys has also signed
    /// this archive. `own` are its keys, null if it has none or they are malformed. Without this rule, a
    /// release with mistyped keys could never be updated again. Faults: Mismatch, Keys, Unsigned, Forged.
    [[nodiscard]] Verdict checkUnpacked(const std::string &bundle, const std::string &build,
                                        const PublicKeys *own) const;

private:
    VerifiedArchive(ArchiveProof proof, ArchiveSignatures signatures, WantedArchive wanted, int descriptor);
    [[nodiscard]] Verdict checkMapped(const ArchiveProof &proof) const;

    ArchiveProof m_proof;
    ArchiveSignatures m_signatures;
    WantedArchive m_wanted;
    DigestStream m_stream; ///< of the copy
    int m_descriptor;
};

} // namespace tx::trust
