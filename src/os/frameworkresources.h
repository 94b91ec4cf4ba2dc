// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The framework's resources: `TarvixUpdate/Resources` beside the shared library (or beside the executable,
/// or in `../lib`, for a program that holds the framework itself). TXUPDATE_RESOURCES overrides it in a
/// program that has no such folder, such as a test.
[[nodiscard]] QString frameworkResourcesPath();

} // namespace tx
