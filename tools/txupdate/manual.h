// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tx::cli {

/// Returns the tool's manual page in the macros of man(7): every command with its options.
[[nodiscard]] std::string manualPage(const CLI::App &application);

/// Returns a script that completes commands and options in `shell`: "bash", "zsh" or "fish". It completes
/// file names where nothing else matches.
[[nodiscard]] std::string completionFor(const CLI::App &application, const std::string &shell);

} // namespace tx::cli
