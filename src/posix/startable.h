// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Thread: any. No Qt.
namespace tx {

/// Returns why the application in the bundle cannot be started on this machine; empty if no reason is found.
/// The executable must be inside the bundle and must not be reached through a link out of it. It must be a
/// regular file with execute permission, and an ELF file for this machine or a script whose interpreter
/// exists.
///
/// `placeOfBundle` is the bundle's future path. An interpreter below that path is looked up in the bundle
/// itself. Nothing is executed. An entry that cannot be examined counts as one that cannot be started.
[[nodiscard]] std::string whyItCannotStart(const std::string &bundlePath, const std::string &placeOfBundle);

} // namespace tx
