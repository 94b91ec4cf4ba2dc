// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"
#include "os/volumes.h"

namespace tx {

/// Why the application cannot be updated where it stands; its first button offers to move it.
/// `isTranslocated` wins when both hold. `volume`: the one that holds it, if that can be told.
[[nodiscard]] Alert cannotUpdateInPlaceAlert(const QString &applicationName, bool isTranslocated,
                                             const std::optional<VolumeInfo> &volume);

} // namespace tx
