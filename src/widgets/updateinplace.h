// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"
#include "os/volumes.h"

namespace tx {

/// Says why the application cannot be updated at its current path; the first button offers to move it. If
/// both reasons apply, `isTranslocated` takes precedence. `volume` is the volume that contains the
/// application, if known.
[[nodiscard]] Alert cannotUpdateInPlaceAlert(const QString &applicationName, bool isTranslocated,
                                             const std::optional<VolumeInfo> &volume);

} // namespace tx
