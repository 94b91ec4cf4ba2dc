// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXLog.h>

namespace tx {

/// Whether TXLog() writes lines of this level, for lines that take work to make. Thread: any.
[[nodiscard]] bool isLogged(int level);

} // namespace tx
