// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What an application that ends passes on to the one that is opened after it. The arguments are the user's
/// own data: they are passed in memory, in files that only the user can read or in the environment. They
/// never appear in a log or in a shell command. Thread: any, unless said.
namespace tx {

struct Handover {
    std::vector<std::string> arguments; ///< without the name of the program
    std::string folder;                 ///< the working folder as an absolute path; empty for the default
};

/// At most this many arguments.
constexpr size_t mostHandoverArguments = 4096;
/// At most this many bytes for all arguments, and the same again for the folder. Each string counts with its
/// terminating NUL.
constexpr size_t longestHandover = 128 << 10;

/// Returns why the handover cannot be used, without quoting an argument. Empty if it can be used.
[[nodiscard]] std::string problemOf(const Handover &handover);

/// Returns the folder and the arguments, each terminated by NUL.
[[nodiscard]] std::string packed(const Handover &handover);
/// Reads what packed() returned. Returns false, with an empty handover, if it is malformed or over a limit.
[[nodiscard]] bool unpack(const std::string &bytes, Handover &handover);

/// Returns the environment variables, as "NAME=value", that pass the handover to a program of this framework.
/// There are none for an empty handover.
[[nodiscard]] std::vector<std::string> variablesOf(const Handover &handover);
/// Reads these variables from the environment of this process and removes them from it. Returns an empty
/// handover if there are none or if they cannot be used. Thread: the only one of the process.
[[nodiscard]] Handover takeHandover();

} // namespace tx
