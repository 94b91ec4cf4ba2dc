// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace tx::cli {

/// The manual page of the tool, in the macros of man(7): every command with its options.
[[nodiscard]] std::string manualPage(const CLI::App &application);

/// A script that completes commands and options in a shell: "bash", "zsh" or "fish". Files are completed
/// where nothing else fits.
[[nodiscard]] std::string completionFor(const CLI::App &application, const std::string &shell);

} // namespace tx::cli
