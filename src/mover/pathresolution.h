// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

// A path free of symbolic links and alias files, component by component. Nothing changes the file system; a
// null text says that it cannot be done. Thread: any.

/// The absolute path with every component resolved. Null for a relative path, and for one that runs through
/// something that is not there. A leading "~" is the home folder; "." and ".." are taken out first.
[[nodiscard]] QString stringByResolvingSymlinksAndAliases(const QString &path);

/// The final target of links and aliases. Null when one leads nowhere, and after 64 steps: they lead in a
/// circle.
[[nodiscard]] QString stringByIterativelyResolvingSymlinkOrAlias(const QString &path);

/// The link's target, or the path itself when it is no link.
[[nodiscard]] QString stringByResolvingSymlink(const QString &path);
/// The alias's target, or the path itself when it is no alias.
[[nodiscard]] QString stringByResolvingAlias(const QString &path);
/// The link's target, null when the path is no link: an absolute target as it stands, a relative one below
/// the link's own folder.
[[nodiscard]] QString stringByConditionallyResolvingSymlink(const QString &path);
/// The alias's target, null when the path is no alias.
[[nodiscard]] QString stringByConditionallyResolvingAlias(const QString &path);

} // namespace tx
