// SPDX-License-Identifier: MIT
#pragma once

#include "report/logs.h"
#include "report/summary.h"

namespace tx::report {

/// Formats tables for people.
[[nodiscard]] std::string tableOf(const std::vector<Summary> &summaries);
/// Returns one JSON object on one line, including the result for each log.
[[nodiscard]] std::string jsonOf(const std::vector<Summary> &summaries, const std::vector<LogResult> &logs);
/// Draws an SVG 1.1 chart for each application, one below the other. Each day is a bar, divided by version.
[[nodiscard]] std::string chartOf(const std::vector<Summary> &summaries);

/// The header line of the CSV, and one line for each row, as in RFC 4180 but with "\n" as line end.
[[nodiscard]] std::string csvHeader();
[[nodiscard]] std::string csvOf(const Row &row);

/// Formats a number with its digits in groups of three.
[[nodiscard]] std::string textOfNumber(int64_t number);

} // namespace tx::report
