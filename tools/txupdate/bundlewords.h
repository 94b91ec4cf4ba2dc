// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

namespace tx::cli {

/// The words of the command that makes bundles.
class BundleWords {
public:
    /// Adds it to the program's commands.
    explicit BundleWords(CLI::App &program);
    ~BundleWords();
    BundleWords(const BundleWords &) = delete;
    BundleWords &operator=(const BundleWords &) = delete;

    /// Runs the command if it was given, and returns its exit status.
    [[nodiscard]] std::optional<int> run() const;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

} // namespace tx::cli
