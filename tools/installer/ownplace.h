// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <sys/types.h>

namespace tx::installer {

/// The path of the running program; empty when it cannot be told.
[[nodiscard]] std::string ownExecutable();

/// Empty when nobody but root can change `executable`, which is the running program, or a folder above it;
/// else what is wrong. What runs as root and fails this must do nothing.
[[nodiscard]] std::string notRootsOwnProgram(const std::string &executable);

/// Reads a user's number: decimal digits and nothing else, no sign, no leading zero, and not -1, which stands
/// for nobody. False when it is none.
[[nodiscard]] bool readUser(const char *text, uid_t &user);

} // namespace tx::installer
