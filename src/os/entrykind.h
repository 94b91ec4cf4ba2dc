// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// What stands at a path; a link itself, not what it leads to.
enum class EntryKind { None, Directory, SymbolicLink, Other };

/// Thread: any. None as well for what cannot be examined.
[[nodiscard]] EntryKind entryKind(const QString &path);

/// The text of a symbolic link; absent when the path is none.
[[nodiscard]] std::optional<QString> symbolicLinkTarget(const QString &path);

/// What an alias file leads to; absent when the path is none. Linux has no alias files: a .desktop file that
/// names a link is an ordinary file.
[[nodiscard]] std::optional<QString> aliasFileTarget(const QString &path);

/// The path without ".", "..", doubled and trailing slashes, a leading "~" or "~user" replaced by that home.
[[nodiscard]] QString standardizedPath(const QString &path);

} // namespace tx
