// SPDX-License-Identifier: MIT
#pragma once

namespace tx::tools {

/// Becomes TXUpdateUnpacker, which unpacks the archive of this type on standard input into `folder`. It is
/// found through the path of this program's file, never through PATH: in the folder of this program or
/// `levels` folders above it. Returns only on failure: the exit status, after a message that begins with
/// `tool`.
[[nodiscard]] int becomeUnpacker(const char *tool, const char *type, char *folder, int levels);

} // namespace tx::tools
