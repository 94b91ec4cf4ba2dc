// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <sys/types.h>
#include <unistd.h>

/// The one answer to "may somebody else write here?", for everything that is believed because of where it is:
/// settings, private folders, tools, the recorded environment, backups. Somebody else is everybody but root
/// and one user. Permission bits, the members of groups, other users whose primary group it is, POSIX access
/// lists, the owners of links and of the folders above, and the sticky bit of those count. What cannot be
/// looked at counts as writable. Access lists of other kinds (NFSv4) are not read. Thread: any.
namespace tx::posix {

/// Empty when nobody else can change the file or folder at `path`, put another one in its place, or lead
/// `path` elsewhere; else what is wrong, in words. `resolved` becomes the path without links, which is the
/// one to use.
[[nodiscard]] std::string untrustedPart(const std::string &path, std::string &resolved,
                                        uid_t user = geteuid());

/// The same for a folder, as one above: in a sticky folder the user's own entries are safe.
[[nodiscard]] std::string untrustedFolder(const std::string &path, uid_t user = geteuid());

/// The same for the file or folder at `path` alone, whoever may write to the folders above. A link is not
/// followed.
[[nodiscard]] std::string writableByOthers(const std::string &path, uid_t user);

/// The same for an open file or folder, which `name` calls in words; it may have been opened with O_PATH.
[[nodiscard]] std::string writableByOthers(int descriptor, const std::string &name, uid_t user);

} // namespace tx::posix
