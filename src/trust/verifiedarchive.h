// SPDX-License-Identifier: MIT
#pragma once

#include "posix/privatefile.h"
#include "trust/archives.h"

namespace tx::trust {

/// An archive of which the application's keys have signed every byte, in a copy that nobody else can write:
/// the only thing that an unpacker should take. Only make() makes one.
///
/// Ownership: it owns the descriptor of the copy, which has no name and goes with the object.
class VerifiedArchive {
public:
    /// Copies what the descriptor `source` reads, from its beginning (or from where it is, if it cannot be
    /// set back), and verifies the copy: whoever changes, exchanges or cuts the source meanwhile changes
    /// nothing or is caught. `folder`: an open folder whose file system has room for the copy. Takes one pass
    /// over the archive, and with a plain signature another one over the copy in memory. Faults: File;
    /// Mismatch for another size; Forged.
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
    /// What it was verified by, for the program that verifies it again as root.
    [[nodiscard]] const ArchiveSignatures &signatures() const { return m_signatures; }

    /// Whether the application that came out of the archive may take the place of the installed one: its
    /// identifier and build are the signed (with a plain signature: the wanted) ones, and one of its own keys
    /// has signed this archive as well. `own`: its keys, null when it has none or they are malformed. Without
    /// that rule a release with mistyped keys would leave its hosts without any further update. Faults:
    /// Mismatch, Keys, Unsigned, Forged.
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
