// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tx::posix {

/// Empty when nobody but root and this user can change the file at `path` or put another one in its place;
/// else what is wrong. `resolved` becomes the path without links, which is the one to use. Thread: any.
[[nodiscard]] std::string untrustedPart(const std::string &path, std::string &resolved);

} // namespace tx::posix
