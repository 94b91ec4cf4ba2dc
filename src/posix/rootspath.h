// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <string>

/// Paths for programs that run with an administrator's rights: walked from "/" by descriptor, one component
/// after the other, so that nobody can put a link in the way. Thread: any.
namespace tx::posix {

/// True for an absolute path without empty, "." and ".." components that ends in a name.
[[nodiscard]] bool isPlainPath(const std::string &path);

/// Opens what is at `path` to look at it (O_PATH). A link anywhere in the path is refused. Empty on success,
/// else what is wrong.
[[nodiscard]] std::string openWithoutLinks(const std::string &path, Descriptor &entry);

/// As openWithoutLinks(); refused as well when anybody but root can change the entry or a folder above it, or
/// put another one into its place: each must belong to root and be writable by root alone. A folder in which
/// everybody may make entries but not replace those of others (/tmp) is accepted above a folder on the same
/// file system. A file system that is mounted without set-user-ID programs is refused: whoever mounted it
/// does not vouch for what it calls root's.
[[nodiscard]] std::string openRootsOwn(const std::string &path, Descriptor &entry);

/// The same for `relative`, a path in the open folder `folder`, whatever the folder's own path leads to by
/// now. `path`: the folder's, for words only. The folder itself counts as one that only root can change.
[[nodiscard]] std::string openWithoutLinksIn(const Descriptor &folder, const std::string &path,
                                             const std::string &relative, Descriptor &entry);
[[nodiscard]] std::string openRootsOwnIn(const Descriptor &folder, const std::string &path,
                                         const std::string &relative, Descriptor &entry);

/// The application bundle around `path`: the nearest folder above it that holds `Contents/Info.plist`, or
/// `Info.plist`. Empty when there is none.
[[nodiscard]] std::string applicationAround(const std::string &path);

} // namespace tx::posix
