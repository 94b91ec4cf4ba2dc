// SPDX-License-Identifier: MIT
#pragma once

#include <archive.h>

#include <functional>
#include <memory>
#include <string>

/// Unpacks either all entries of an archive into a folder, or none, so that an installation finds only
/// complete files there.
namespace tx::tools {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;

/// The permitted size of an archive's content in bytes: TXUPDATE_UNARCHIVER_LIMIT, or the usual one.
[[nodiscard]] la_int64_t unpackedLimit();

/// Prints "TOOL: WHAT: WHY" to the error output. Returns the exit status of a failure, 1.
int fail(const char *tool, const std::string &what, const char *why);

/// A descriptor that can be read from any position: standard input itself when it is a file, else a nameless
/// copy of it in the folder, where there must be room for the content anyway. -1 with errno on failure;
/// `unreadable` becomes true if standard input could not be read.
[[nodiscard]] int seekableInput(const std::string &folder, bool &unreadable);

/// Reads standard input to its end, so that a program that writes into a pipe is not interrupted.
void drainInput();

/// Unpacks `reader` into `folder`; entries replace existing ones of the same name. Nothing is left in the
/// folder if the archive is damaged, leads out of the folder, contains anything but files, folders and links,
/// or exceeds the limit in TXUPDATE_UNARCHIVER_LIMIT (bytes), or if `endsWell`, which is called after the
/// last entry, returns false. Returns the exit status of `tool`.
[[nodiscard]] int extract(archive *reader, const std::string &folder, const char *tool,
                          const std::function<bool()> &endsWell = nullptr);

} // namespace tx::tools
