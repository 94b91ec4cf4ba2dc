// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The links of an archive, as they are in the folder that it is unpacked into: the current folder.
namespace tx::tools {

/// Why a symbolic link of this name and target must not be in the folder; empty when it may be. A link is
/// refused when its target is absolute, or when the way to it leaves the folder that the link is in at the
/// top: an application keeps its links when it gets another name or another place. The way is followed
/// through the links that are there so far, so that every link is asked about once more when all of them are
/// there. What is not there is followed by its name alone.
[[nodiscard]] std::string reasonAgainstLink(const std::string &name, const std::string &target);

/// As above, for a link that has been made.
[[nodiscard]] std::string reasonAgainstLink(const std::string &name);

/// Why the file `target` must not get a second name; empty when it may. It is a regular file, and no link is
/// on the way to it.
[[nodiscard]] std::string reasonAgainstHardLink(const std::string &target);

} // namespace tx::tools
