// SPDX-License-Identifier: MIT
#pragma once

#include "trust/archives.h"

#include <string>

namespace tx {

class FeedEntry;

/// What an entry of a feed says about the signatures of its archive, as it is written there. Thread: a value.
struct EntrySignatures {
    std::string texts;   ///< of a JSON entry: texts with a NUL between them
    std::string escaped; ///< of an appcast: texts one after the other, line feeds written as "\n"
    std::string plain;   ///< of an appcast: the signature over the archive's bytes
    std::string length;  ///< of the enclosure, which belongs to that one

    [[nodiscard]] static EntrySignatures of(const FeedEntry &entry);

    /// Taken apart. A plain signature that is malformed counts only where there is nothing else: appcasts
    /// have it for other programs. Fault: Signature.
    [[nodiscard]] trust::Outcome<trust::ArchiveSignatures> parse() const;
};

} // namespace tx
