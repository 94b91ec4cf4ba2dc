// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace tx::installer {

struct OutputLimits {
    std::chrono::milliseconds time{10000};
    size_t size = 1 << 20; ///< bytes
};

/// Runs the program at `program`, with "/" as its folder and next to no environment, and gives all that it
/// writes to either output. Empty on success, whatever its exit status; else why: it cannot be started, takes
/// longer or writes more than it may. It is ended in any case, with what it started.
[[nodiscard]] std::string outputOf(const std::string &program, const std::vector<std::string> &arguments,
                                   std::string &output, const OutputLimits &limits = {});

/// What a program gets beside its arguments.
struct ProgramInput {
    int descriptor = -1;                ///< its standard input; by default nothing comes from there
    std::vector<std::string> variables; ///< "NAME=value", beside PATH and LC_ALL
};

/// The same with an input. `status`: its exit status, or 128 plus the signal that ended it.
[[nodiscard]] std::string runProgram(const std::string &program, const std::vector<std::string> &arguments,
                                     const ProgramInput &input, std::string &output, int &status,
                                     const OutputLimits &limits = {});

} // namespace tx::installer
