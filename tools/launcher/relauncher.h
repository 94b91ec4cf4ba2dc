// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tx::launcher {

/// The functions through which the relaunch tool acts. All must be set.
struct Context {
    std::function<pid_t()> parent;
    /// Waits a second.
    std::function<void()> wait;
    std::function<void(const std::string &bundle)> open;
    /// Writes one line to the system log.
    std::function<void(const std::string &line)> log;
};

/// Waits until the parent process, whose identifier is the first argument, has ended, and opens the bundle at
/// the second argument. If the third argument is "debug", it logs its steps. Returns the exit status: 1 for a
/// wrong number of arguments, otherwise 0.
int relaunch(const std::vector<std::string> &arguments, const Context &context);

} // namespace tx::launcher
