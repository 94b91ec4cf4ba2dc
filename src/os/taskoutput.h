// SPDX-License-Identifier: MIT
#pragma once

#include "os/tasks.h"

#include <chrono>

namespace tx {

struct TaskOutputLimits {
    std::chrono::milliseconds time{10000};
    qsizetype size = 1 << 20; ///< bytes
};

/// What a program writes to its standard output. Absent when it cannot be started, fails, takes longer or
/// writes more than it may; it is ended then, with what it started. Thread: any but the main one: it blocks.
[[nodiscard]] std::optional<QByteArray> outputOf(TaskRequest request, const TaskOutputLimits &limits = {});

} // namespace tx
