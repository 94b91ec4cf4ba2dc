// SPDX-License-Identifier: MIT
#pragma once

#include "trust/appinfo.h"

#include <TarvixUpdate/TXBundle.h>

namespace tx::trust {

/// AppInfo::read() of a bundle that the framework has opened. Thread: any.
Outcome<AppInfo> infoOfBundle(const TXBundle &bundle);

} // namespace tx::trust
