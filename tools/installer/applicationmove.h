// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"

#include <string>

namespace tx::installer {

/// Copies the bundle `application` into `folder` under the same name. The copy is made next to its
/// destination and synced to disk before it is renamed; the existing entry stays until then. Only files of
/// `owner` are copied. Returns an empty string on success, else the problem. In that case the existing entry
/// is still at the destination, and a complete copy that could not be renamed stays next to it.
[[nodiscard]] std::string moveApplication(const std::string &application, const std::string &folder,
                                          uid_t owner, Files &files);

} // namespace tx::installer
