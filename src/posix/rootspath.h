// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <string>

/// Resolves paths for programs that run as root: component by component from "/", by descriptor, so that
/// nobody can insert a link. Thread: any.
namespace tx::posix {

/// True for an absolute path without empty, "." and ".." components that ends in a name.
[[nodiscard]] bool isPlainPath(const std::string &path);

/// Opens the entry at `path` with O_PATH. Fails if any component is a link. Returns an empty string on
/// success, else the reason.
[[nodiscard]] std::string openWithoutLinks(const std::string &path, Descriptor &entry);

/// Like openWithoutLinks(). Also fails if anyone but root can change or replace the entry or a folder above
/// it: each must belong to root and be writable only by root. A folder in which everybody may create entries
/// but not replace those of others, such as /tmp, is accepted above a folder on the same file system. A file
/// system that is mounted "nosuid" is refused, because a user may have mounted it and decided which files
/// belong to root.
[[nodiscard]] std::string openRootsOwn(const std::string &path, Descriptor &entry);

/// As above for `relative`, a path below the open folder `folder`, even if the folder has been renamed since.
/// `path` is the folder's path and is used only in messages. Assumes that only root can change the folder
/// itself.
[[nodiscard]] std::string openWithoutLinksIn(const Descriptor &folder, const std::string &path,
                                             const std::string &relative, Descriptor &entry);
[[nodiscard]] std::string openRootsOwnIn(const Descriptor &folder, const std::string &path,
                                         const std::string &relative, Descriptor &entry);

/// Returns the application bundle that contains `path`: the nearest folder above it with
/// `Contents/Info.plist` or `Info.plist`. Empty if there is none.
[[nodiscard]] std::string applicationAround(const std::string &path);

} // namespace tx::posix
