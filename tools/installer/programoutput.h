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

/// Runs the program at `program` in the folder "/" with an almost empty environment, and returns its output
/// from both streams. Returns an empty string on success, whatever the exit status. Otherwise returns the
/// reason: it cannot be started, or exceeds the limits of time or size. The program and its child processes
/// have ended in any case.
[[nodiscard]] std::string outputOf(const std::string &program, const std::vector<std::string> &arguments,
                                   std::string &output, const OutputLimits &limits = {});

/// What a program receives besides its arguments.
struct ProgramInput {
    int descriptor = -1;                ///< used as standard input; by default standard input is empty
    std::vector<std::string> variables; ///< "NAME=value", in addition to PATH and LC_ALL
};

/// As above, with an input. `status` receives the exit status, or 128 plus the number of the signal that
/// ended the program.
[[nodiscard]] std::string runProgram(const std::string &program, const std::vector<std::string> &arguments,
                                     const ProgramInput &input, std::string &output, int &status,
                                     const OutputLimits &limits = {});

} // namespace tx::installer
