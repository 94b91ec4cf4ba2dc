// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateHost.h>

namespace tx {

/// Makes the next TXUpdateHost::host() read the main bundle anew. For a program that acts for another
/// application, before it uses the framework.
void resetHost();

/// Returns an error if the host has no identifier, because its update could not be recognized: its bundle has
/// no readable Info.plist, or that has no CFBundleIdentifier. The error names the file and what to add.
/// Thread: any.
[[nodiscard]] TXError hostIdentityError();

/// As above. Also logs the error the first time in a process.
[[nodiscard]] TXError checkHostIdentity();

/// Three components packed as by TXUpdateOSVersion.
[[nodiscard]] quint32 packVersion(int majorVersion, int minorVersion, int patchVersion);

} // namespace tx
