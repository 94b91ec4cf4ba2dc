// SPDX-License-Identifier: MIT
#pragma once

#include "mover/applicationplaces.h"
#include "os/alert.h"

namespace tx {

/// The question whether to move the application, with its strings, buttons and check box. `name` is the
/// application's name.
[[nodiscard]] Alert moveQuestion(const ApplicationPlaces &places, const QString &name, bool isTranslocated);

/// The user's language for a text of the mover.
[[nodiscard]] QString moverText(const QString &key);

} // namespace tx
