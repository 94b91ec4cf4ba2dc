// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The framework's resources: `TarvixUpdate/Resources` beside the shared library. For a program that is
/// statically linked with the framework, it is beside the executable or in `../lib`. TXUPDATE_RESOURCES names
/// the folder for programs without one, such as tests.
[[nodiscard]] QString frameworkResourcesPath();

} // namespace tx
