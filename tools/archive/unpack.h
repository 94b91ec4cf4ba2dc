// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// The types of archives, and how they are unpacked.
namespace tx::tools {

enum class ArchiveType { Zip, Tar, TarGzip, TarBzip2, TarZstd };

/// The exit status if the archive cannot be read. Other failures have the status 1.
constexpr int archiveUnreadable = 74;

/// Unpacks the archive on standard input into `folder`, an absolute path. Messages begin with `tool`. Returns
/// the exit status. The archive may be a file or a pipe; a zip archive from a pipe is copied first, because
/// its directory is at the end.
[[nodiscard]] int unpack(ArchiveType type, const std::string &folder, const char *tool);

} // namespace tx::tools
