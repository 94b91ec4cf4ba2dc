// SPDX-License-Identifier: MIT
#pragma once

#include "mover/applicationplaces.h"
#include "os/alert.h"

namespace tx {

/// The question whether the application is to be moved: its texts, buttons and box. `name`: the
/// application's.
[[nodiscard]] Alert moveQuestion(const ApplicationPlaces &places, const QString &name, bool isTranslocated);

/// The user's language for a text of the mover.
[[nodiscard]] QString moverText(const QString &key);

} // namespace tx
