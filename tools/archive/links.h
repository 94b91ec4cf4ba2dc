// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The links of an archive, as they are in the folder that it is unpacked into: the current folder.
namespace tx::tools {

/// Returns why a symbolic link of this name and target must not be in the folder; empty if it may. A link is
/// refused if its target is absolute, or if the path to the target leaves the top-level folder of the link,
/// because an application may be renamed or moved. The path is resolved through the links that exist so far,
/// so every link must be checked again when all links exist. Components that do not exist are resolved by
/// name.
[[nodiscard]] std::string reasonAgainstLink(const std::string &name, const std::string &target);

/// As above, for a link that has been made.
[[nodiscard]] std::string reasonAgainstLink(const std::string &name);

/// Returns why a hard link to the file `target` must not be made; empty if it may. The target must be a
/// regular file, and no component of its path may be a link.
[[nodiscard]] std::string reasonAgainstHardLink(const std::string &target);

} // namespace tx::tools
