// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Thread: any. No Qt.
namespace tx {

/// Why the application in the bundle cannot be started on this machine, in words; empty when nothing speaks
/// against it. Its executable must be inside the bundle without a link out of it, a regular file with its
/// execute bits, and an ELF file of this machine or a script whose interpreter exists.
///
/// An interpreter at a place inside `placeOfBundle`, where the bundle is going to be, is looked for in the
/// bundle itself. Nothing is executed. What cannot be looked at counts as something that cannot be started.
[[nodiscard]] std::string whyItCannotStart(const std::string &bundlePath, const std::string &placeOfBundle);

} // namespace tx
