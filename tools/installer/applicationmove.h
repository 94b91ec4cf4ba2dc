// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"

#include <string>

namespace tx::installer {

/// Copies the bundle `application` into `folder` under its own name. The copy is made beside its destination
/// and written to disk before it takes its name; what was there stays until then. Only files of `owner` are
/// copied. Empty on success, else what is wrong: then what was at the destination is still there, and a copy
/// that is complete but could not take its name stays beside it.
[[nodiscard]] std::string moveApplication(const std::string &application, const std::string &folder,
                                          uid_t owner, Files &files);

} // namespace tx::installer
