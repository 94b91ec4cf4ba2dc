// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// The kind of entry at a path. Links are not followed.
enum class EntryKind { None, Directory, SymbolicLink, Other };

/// Thread: any. None as well for what cannot be examined.
[[nodiscard]] EntryKind entryKind(const QString &path);

/// The target string of a symbolic link; absent if the path is not a link.
[[nodiscard]] std::optional<QString> symbolicLinkTarget(const QString &path);

/// The target of an alias file; absent if the path is not an alias file. Linux has no alias files: a .desktop
/// file of type Link is an ordinary file.
[[nodiscard]] std::optional<QString> aliasFileTarget(const QString &path);

/// The path without ".", "..", and redundant slashes. A leading "~" or "~user" is replaced with that home
/// folder.
[[nodiscard]] QString standardizedPath(const QString &path);

} // namespace tx
