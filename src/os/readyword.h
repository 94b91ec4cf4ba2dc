// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <chrono>

namespace tx {

class Task;

/// Waits until the installer tool reports that it is ready, with the line "ready" on its standard output,
/// which `tool` reads. Returns null in that case. Otherwise returns the reason, in the tool's own words if it
/// printed any. The tool has then been ended, if this process has the right to do so. Blocks for slightly
/// longer than `limit` at most. Thread: the one that uses `tool`.
[[nodiscard]] QString waitForReadyWord(Task &tool, std::chrono::milliseconds limit);

} // namespace tx
