// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Where this user's files stand, without Qt. Thread: any. Paths have no trailing slash.
namespace tx::posix {

/// $HOME when it is an absolute path, else the home folder of the user database.
[[nodiscard]] std::string homeFolder();
/// $XDG_CACHE_HOME or ~/.cache.
[[nodiscard]] std::string cacheFolder();
/// $XDG_CONFIG_HOME or ~/.config.
[[nodiscard]] std::string configFolder();

/// The framework's own folder for passing files, below the cache folder: made on demand with mode 0700.
/// It is never the shared /tmp, where another user could take a predictable name first. Empty when it cannot
/// be had: the path is a link, is no folder or belongs to another user; `why` then says which.
[[nodiscard]] std::string privateTemporaryFolder(std::string *why = nullptr);

} // namespace tx::posix
