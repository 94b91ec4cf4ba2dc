// SPDX-License-Identifier: MIT
#pragma once

#include "trust/archives.h"

#include <string>

namespace tx {

class FeedEntry;

/// The signatures of an archive as an entry of a feed states them, not yet parsed. Thread: a value.
struct EntrySignatures {
    std::string texts;   ///< from a JSON entry: the signatures, separated by NUL
    std::string escaped; ///< from an appcast: the signatures, concatenated; line feeds are written as "\n"
    std::string plain;   ///< from an appcast: the plain signature of the archive's bytes
    std::string length;  ///< from an appcast: the enclosure's length, which the plain signature needs

    [[nodiscard]] static EntrySignatures of(const FeedEntry &entry);

    /// Parses the members. A malformed plain signature is a fault only if there is no other signature,
    /// because appcasts may carry plain signatures for other programs. Fault: Signature.
    [[nodiscard]] trust::Outcome<trust::ArchiveSignatures> parse() const;
};

/// Returns why none of the keys can verify the archive of an entry; absent if one may. Does not verify: that
/// is done later, and only for the update that is chosen. Copies no signature, because feeds are long.
[[nodiscard]] trust::Verdict examineSignatures(const FeedEntry &entry, const trust::PublicKeys &keys,
                                               const trust::WantedArchive &wanted);

} // namespace tx
