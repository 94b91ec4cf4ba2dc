// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

namespace tx::cli {

/// The command-line options of the publishing commands.
class PublishWords {
public:
    /// Adds them to the program's commands and to those of "feed".
    PublishWords(CLI::App &program, CLI::App &feed);
    ~PublishWords();
    PublishWords(const PublishWords &) = delete;
    PublishWords &operator=(const PublishWords &) = delete;

    /// Runs the command that was given, and returns its exit status; absent when it was none of these.
    [[nodiscard]] std::optional<int> run() const;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

} // namespace tx::cli
