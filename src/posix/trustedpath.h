// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <sys/types.h>
#include <unistd.h>

/// Answers the question "may somebody else write here?" for everything that is trusted because of its path:
/// settings, private folders, tools, the recorded environment, backups. "Somebody else" is everybody but root
/// and one user. The checks cover permission bits, the members of groups, other users whose primary group it
/// is, POSIX access lists, the owners of links and of parent folders, and the sticky bit of these folders. An
/// entry that cannot be examined counts as writable. Access lists of other kinds (NFSv4) are not examined.
/// Thread: any.
namespace tx::posix {

/// Returns an empty string if nobody else can change or replace the file or folder at `path`, or redirect the
/// path; otherwise the problem. `resolved` receives the path without links, which callers should use.
[[nodiscard]] std::string untrustedPart(const std::string &path, std::string &resolved,
                                        uid_t user = geteuid());

/// As above for a folder that is used as a parent: the user's own entries in a sticky folder are safe.
[[nodiscard]] std::string untrustedFolder(const std::string &path, uid_t user = geteuid());

/// Checks only the file or folder at `path` itself, and not the parent folders. Does not follow links.
[[nodiscard]] std::string writableByOthers(const std::string &path, uid_t user);

/// Checks an open file or folder, which may have been opened with O_PATH. `name` is used in the message.
[[nodiscard]] std::string writableByOthers(int descriptor, const std::string &name, uid_t user);

} // namespace tx::posix
