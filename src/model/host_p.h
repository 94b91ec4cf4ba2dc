// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>
#include <TarvixUpdate/TXUpdateHost.h>

namespace tx {

/// Makes the next TXUpdateHost::host() read the main bundle anew. For a program that acts for another
/// application, before it uses the framework.
void resetHost();

/// An error when the host does not say which application it is, so that no update of it could be installed:
/// its bundle has no readable Info.plist, or that has no CFBundleIdentifier. It names the file and what to
/// add. Thread: any.
[[nodiscard]] TXError hostIdentityError();

/// The same, which is written to the log the first time in a process.
[[nodiscard]] TXError checkHostIdentity();

/// Three components packed as by TXUpdateOSVersion.
[[nodiscard]] quint32 packVersion(int majorVersion, int minorVersion, int patchVersion);

} // namespace tx
