// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

/// Whether something was done with this update that an equal one, of another check, does not know of.
inline bool hasState(const TXUpdate &update) {
    return update.isDownloading() || update.isDownloaded() || update.isInstalling() || update.isInstalled();
}

} // namespace tx
