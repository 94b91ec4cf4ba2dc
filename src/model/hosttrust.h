// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trust/appinfo.h"
#include "trust/archives.h"

#include <memory>

class TXUpdate;

namespace tx {

/// The host's keys, identifier and feed name from its Info.plist; a feed name that was set at run time
/// replaces the one there. Error: TXUpdateErrorKeysMalformed if the keys or related values are malformed. In
/// that case the host must not check, download or install anything. Thread: any.
Result<trust::AppInfo> hostTrust();

/// Converts a fault into the error for a refused archive. Thread: any.
TXError archiveTrustError(const trust::Fault &fault);
/// Converts a fault into the error for a refused application that was unpacked from a verified archive.
/// Thread: any.
TXError releaseTrustError(const trust::Fault &fault);

/// The conditions that the archive of one update must meet. Thread: a value.
struct ArchiveTrust {
    trust::PublicKeys keys;
    trust::ArchiveSignatures signatures;
    trust::WantedArchive wanted;
    trust::ArchiveProof proof;
};

/// Returns null for a host without keys, because such a host verifies nothing. Errors: those of hostTrust();
/// an archive that none of the host's keys has signed for this build. Thread: the update's.
Result<std::shared_ptr<const ArchiveTrust>> archiveTrustOf(const TXUpdate &update);

} // namespace tx
