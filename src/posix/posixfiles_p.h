// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"
#include "posix/readwrite.h"

#include <string>
#include <vector>

/// Functions that the operations on file trees share. Thread: any.
namespace tx::posix {

/// errno at `path`; EIO when it is not set.
[[nodiscard]] FileError failure(const std::string &path);

/// Opens a folder for reading, and no link.
[[nodiscard]] Descriptor openFolder(int folder, const char *name);

/// Changes the mode of an entry whose descriptor was opened with O_PATH, for which fchmod fails.
[[nodiscard]] bool changeModeOf(const Descriptor &entry, mode_t mode);

} // namespace tx::posix
