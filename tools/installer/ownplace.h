// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <sys/types.h>

namespace tx::installer {

/// The path of the running program; empty if it cannot be determined.
[[nodiscard]] std::string ownExecutable();

/// Returns an empty string if only root can change `executable`, which is the running program, and the
/// folders above it; otherwise the problem. A program that runs as root must do nothing in that case.
[[nodiscard]] std::string notRootsOwnProgram(const std::string &executable);

/// Parses a user identifier: only decimal digits, no sign, no leading zero, and not -1, which means "no
/// user". Returns false for anything else.
[[nodiscard]] bool readUser(const char *text, uid_t &user);

} // namespace tx::installer
