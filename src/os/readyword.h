// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <chrono>

namespace tx {

class Task;

/// Waits until the installer tool says that it is ready: the line "ready" on its standard output, which
/// `tool` reads. Null when it said so. Otherwise the reason why not, in the tool's own words if it wrote any;
/// the tool has been ended then, as far as this process may end it. Blocks for at most `limit` and a moment.
/// Thread: the one that uses `tool`.
[[nodiscard]] QString waitForReadyWord(Task &tool, std::chrono::milliseconds limit);

} // namespace tx
