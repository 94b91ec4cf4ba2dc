// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Paths of this user's folders, without Qt. Thread: any. Paths have no trailing slash.
namespace tx::posix {

/// $HOME when it is an absolute path, else the home folder of the user database.
[[nodiscard]] std::string homeFolder();
/// $XDG_CACHE_HOME or ~/.cache.
[[nodiscard]] std::string cacheFolder();
/// $XDG_CONFIG_HOME or ~/.config.
[[nodiscard]] std::string configFolder();
/// $XDG_DATA_HOME or ~/.local/share.
[[nodiscard]] std::string dataFolder();

/// The framework's folder for passing files between processes, below the cache folder. Created on demand with
/// mode 0700. Never in the shared /tmp, where another user could create an entry of a predictable name first.
/// Empty if the path is a link, is not a folder or belongs to another user; `why` receives the reason.
[[nodiscard]] std::string privateTemporaryFolder(std::string *why = nullptr);

} // namespace tx::posix
