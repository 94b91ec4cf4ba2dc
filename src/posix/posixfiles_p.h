// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"
#include "posix/readwrite.h"

#include <string>
#include <vector>

/// What the operations on file trees have in common. Thread: any.
namespace tx::posix {

/// errno at `path`; EIO when it is not set.
[[nodiscard]] FileError failure(const std::string &path);

/// Opens a folder for reading, and no link.
[[nodiscard]] Descriptor openFolder(int folder, const char *name);

/// Changes the mode of what a descriptor opened with O_PATH holds, which fchmod does not.
[[nodiscard]] bool changeModeOf(const Descriptor &entry, mode_t mode);

} // namespace tx::posix
