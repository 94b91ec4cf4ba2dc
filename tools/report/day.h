// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tx::report {

/// Days since 1970-01-01 in UTC. Servers in different time zones thus count the same check on the same day.
using Day = int32_t;

/// Parses a time as logs write it: "22/Nov/2026:16:54:11 +0100", or ISO 8601 with a time zone
/// ("2026-11-22T16:54:11.5+01:00", "2026-11-22 16:54:11Z").
[[nodiscard]] std::optional<Day> dayOfTime(std::string_view time);
/// Converts a number of seconds since 1970. A number too large for that is taken as milliseconds,
/// microseconds or nanoseconds.
[[nodiscard]] std::optional<Day> dayOfNumber(double time);

/// Formats a day as "2026-11-22", and parses it; absent for a day that does not exist.
[[nodiscard]] std::string textOfDay(Day day);
[[nodiscard]] std::optional<Day> dayOfText(std::string_view text);

} // namespace tx::report
