// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx::cli {

/// Returns the path of a program that only txupdate runs. An installation has it below libexec, reached from
/// this program, so the prefix can be moved; a build tree has it beside this program.
[[nodiscard]] QString helperProgram(const QString &name);

} // namespace tx::cli
