// SPDX-License-Identifier: MIT
#pragma once

#include "report/logs.h"
#include "report/summary.h"

namespace tx::report {

/// Tables for people.
[[nodiscard]] std::string tableOf(const std::vector<Summary> &summaries);
/// One JSON object in one line, with what was found in each log.
[[nodiscard]] std::string jsonOf(const std::vector<Summary> &summaries, const std::vector<LogResult> &logs);
/// A bar for each day, divided by version; one chart for each application, one below the other. SVG 1.1.
[[nodiscard]] std::string chartOf(const std::vector<Summary> &summaries);

/// The first line of CSV, and one line for each row, as RFC 4180 has them, with "\n" at the end.
[[nodiscard]] std::string csvHeader();
[[nodiscard]] std::string csvOf(const Row &row);

/// Digits in groups of three.
[[nodiscard]] std::string textOfNumber(int64_t number);

} // namespace tx::report
