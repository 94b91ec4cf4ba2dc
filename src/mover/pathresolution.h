// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

// A path free of symbolic links and alias files, component by component. Nothing changes the file system; a
// null text says that it cannot be done. Thread: any.

/// Returns the absolute path with every component resolved. Null for a relative path, and if a component
/// before the last one does not exist. A leading "~" is the home folder; "." and ".." are removed first.
[[nodiscard]] QString stringByResolvingSymlinksAndAliases(const QString &path);

/// Follows links and aliases to their final target. Null if a target does not exist, and after 64 steps,
/// which indicates a cycle.
[[nodiscard]] QString stringByIterativelyResolvingSymlinkOrAlias(const QString &path);

/// Returns the link's target, or the path itself if it is not a link.
[[nodiscard]] QString stringByResolvingSymlink(const QString &path);
/// Returns the alias's target, or the path itself if it is not an alias.
[[nodiscard]] QString stringByResolvingAlias(const QString &path);
/// Returns the link's target, or null if the path is not a link. An absolute target is returned unchanged, a
/// relative one relative to the link's folder.
[[nodiscard]] QString stringByConditionallyResolvingSymlink(const QString &path);
/// Returns the alias's target, or null if the path is not an alias.
[[nodiscard]] QString stringByConditionallyResolvingAlias(const QString &path);

} // namespace tx
