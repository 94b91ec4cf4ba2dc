// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "model/hosttrust.h"
#include "trust/verifiedarchive.h"

namespace tx {

using VerifiedArchivePtr = std::shared_ptr<const trust::VerifiedArchive>;

/// Copies the archive at `path` to a file beside it that nobody else can open, and verifies the copy: from
/// then on it does not matter what happens at `path`. Takes as long as reading the archive. Errors:
/// TXUpdateErrorDomain. Thread: any.
Result<VerifiedArchivePtr> verifyArchive(const ArchiveTrust &trusted, const QString &path);

/// Null when the application at `application`, which came out of the archive, is the signed one, and its own
/// keys verify the archive, too. Errors: TXUpdateErrorArchiveNotGenuine, TXUpdateErrorReleaseNotContinued.
/// Thread: any.
TXError checkUnpackedTrust(const trust::VerifiedArchive &archive, const QString &application);

/// True when the framework must unpack nothing but verified archives: the host has keys, or malformed ones.
/// Thread: any.
[[nodiscard]] bool unpacksOnlyVerified();

} // namespace tx
