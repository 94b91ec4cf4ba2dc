// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tx::launcher {

/// What the relaunch tool touches of the world. All must be set.
struct Context {
    std::function<pid_t()> parent;
    /// Waits a second.
    std::function<void()> wait;
    std::function<void(const std::string &bundle)> open;
    /// Writes one line to the system log.
    std::function<void(const std::string &line)> log;
};

/// Waits until the parent, the process that the first argument names, has gone, and opens the bundle that the
/// second names. The third, "debug", asks for lines in the log; any other asks for none. Returns the exit
/// status: 1 for a wrong number of arguments, else 0.
int relaunch(const std::vector<std::string> &arguments, const Context &context);

} // namespace tx::launcher
