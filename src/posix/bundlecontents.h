// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Support for bundles that a user owns in a folder that the user does not own, such as an application in
/// /opt. Such a bundle cannot be replaced there, but its contents can. Thread: any.
namespace tx::posix {

/// The folder with all contents of a bundle.
[[nodiscard]] std::string contentsOf(const std::string &bundle);

/// Checks whether this user may exchange the contents of `bundle` and `newBundle`. Returns an empty string if
/// so, else the reason. Each must be a folder that contains only a folder "Contents" and links named bin,
/// lib, share and Info.plist to the entry of that name in it. Files of an interrupted installation are
/// ignored. This user must own `bundle` and its "Contents". If `newBundle` is empty, only `bundle` is
/// checked.
[[nodiscard]] std::string contentsProblem(const std::string &bundle, const std::string &newBundle);

} // namespace tx::posix
