// SPDX-License-Identifier: MIT
#pragma once

#include <archive.h>

#include <functional>
#include <memory>
#include <string>

/// Unpacking that either puts everything of an archive into a folder, or nothing: what the installation finds
/// there is complete.
namespace tx::tools {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;

/// Prints "TOOL: WHAT: WHY" to the error output. Returns the exit status of a failure, 1.
int fail(const char *tool, const std::string &what, const char *why);

/// A descriptor that can be read from any position: standard input itself when it is a file, else a nameless
/// copy of it in the folder, where there must be room for the content anyway. -1 with errno on failure.
[[nodiscard]] int seekableInput(const std::string &folder);

/// Reads standard input to its end, so that whoever writes to it is not interrupted.
void drainInput();

/// Unpacks `reader` into `folder`, where entries replace those of their names. An archive that is damaged,
/// leaves the folder, holds anything but files, folders and links, or takes more than the bytes in
/// TXUPDATE_UNARCHIVER_LIMIT leaves nothing there, as when `endsWell`, asked
/// after the last entry, says no. Returns the exit status of `tool`.
[[nodiscard]] int extract(archive *reader, const std::string &folder, const char *tool,
                          const std::function<bool()> &endsWell = nullptr);

} // namespace tx::tools
