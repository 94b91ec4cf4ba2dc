// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "trust/appinfo.h"
#include "trust/archives.h"

#include <memory>

class TXUpdate;

namespace tx {

/// What the host's Info.plist says about trust, with the feed's name that was set at run time, if one was.
/// Error: TXUpdateErrorKeysMalformed, when the keys or what belongs to them are malformed. Nothing may be
/// checked, downloaded or installed then. Thread: any.
Result<trust::AppInfo> hostTrust();

/// The error for an archive that was refused. Thread: any.
TXError archiveTrustError(const trust::Fault &fault);
/// The same for the application that came out of a verified archive.
TXError releaseTrustError(const trust::Fault &fault);

/// What must hold of the archive of one update. Thread: a value.
struct ArchiveTrust {
    trust::PublicKeys keys;
    trust::ArchiveSignatures signatures;
    trust::WantedArchive wanted;
    trust::ArchiveProof proof;
};

/// Null for a host without keys, which verifies nothing. Errors: hostTrust()'s, and those of an archive that
/// none of the host's keys has signed for this build. Thread: the update's.
Result<std::shared_ptr<const ArchiveTrust>> archiveTrustOf(const TXUpdate &update);

} // namespace tx
