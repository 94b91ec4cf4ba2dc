// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// Why the web engine's sandbox cannot run in this process; null when it can, or when the environment
/// (QTWEBENGINE_DISABLE_SANDBOX=1) does without it. The engine ends a process in which it cannot: it must not
/// be started there.
[[nodiscard]] QString reasonAgainstSandbox();

} // namespace tx
