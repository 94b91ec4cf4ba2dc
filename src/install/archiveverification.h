// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "model/hosttrust.h"
#include "trust/verifiedarchive.h"

namespace tx {

using VerifiedArchivePtr = std::shared_ptr<const trust::VerifiedArchive>;

/// Copies the archive at `path` to a new file in the same folder that no other user can open, and verifies
/// the copy. Changes to the file at `path` have no effect after that. Takes as long as reading the whole
/// archive. Errors: TXUpdateErrorDomain. Thread: any.
Result<VerifiedArchivePtr> verifyArchive(const ArchiveTrust &trusted, const QString &path);

/// Checks the application at `application`, which was unpacked from the archive. Returns null if it is the
/// signed application and its own keys also verify the archive. Errors: TXUpdateErrorArchiveNotGenuine,
/// TXUpdateErrorReleaseNotContinued. Thread: any.
TXError checkUnpackedTrust(const trust::VerifiedArchive &archive, const QString &application);

/// True if the framework may unpack only verified archives: the host has keys, even malformed ones. Thread:
/// any.
[[nodiscard]] bool unpacksOnlyVerified();

} // namespace tx
