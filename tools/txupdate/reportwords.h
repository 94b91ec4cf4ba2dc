// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

namespace tx::cli {

/// The command-line options of "report".
class ReportWords {
public:
    /// Adds the command to the program.
    explicit ReportWords(CLI::App &program);
    ~ReportWords();
    ReportWords(const ReportWords &) = delete;
    ReportWords &operator=(const ReportWords &) = delete;

    /// Runs the command if it was given, and returns its exit status; otherwise returns an empty optional.
    [[nodiscard]] std::optional<int> run() const;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

} // namespace tx::cli
