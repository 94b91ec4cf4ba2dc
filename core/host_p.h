// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateHost.h>

namespace tx {

/// Makes the next TXUpdateHost::host() read the main bundle anew. For a program that acts for another
/// application, before it uses the framework.
void resetHost();

/// Three components packed as by TXUpdateOSVersion.
[[nodiscard]] quint32 packVersion(int majorVersion, int minorVersion, int patchVersion);

} // namespace tx
