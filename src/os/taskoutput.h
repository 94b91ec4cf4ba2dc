// SPDX-License-Identifier: MIT
#pragma once

#include "os/tasks.h"

#include <chrono>

namespace tx {

struct TaskOutputLimits {
    std::chrono::milliseconds time{10000};
    qsizetype size = 1 << 20; ///< bytes
};

/// Runs a program and returns its standard output. Absent if the program cannot be started, fails, or exceeds
/// the limits of time or size. In the latter cases the program and its child processes are ended. Thread: any
/// but the main one, because it blocks.
[[nodiscard]] std::optional<QByteArray> outputOf(TaskRequest request, const TaskOutputLimits &limits = {});

} // namespace tx
