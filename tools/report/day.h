// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tx::report {

/// Days since 1970-01-01, in UTC: the logs of servers in different zones count the same check on the same
/// day.
using Day = int32_t;

/// The day of a time as logs write it: "22/Nov/2026:16:54:11 +0100", or ISO 8601 with a zone
/// ("2026-11-22T16:54:11.5+01:00", "2026-11-22 16:54:11Z").
[[nodiscard]] std::optional<Day> dayOfTime(std::string_view time);
/// The day of a number: seconds since 1970, or milli-, micro- or nanoseconds when it is too large for that.
[[nodiscard]] std::optional<Day> dayOfNumber(double time);

/// "2026-11-22", and back; absent for a day that no calendar has.
[[nodiscard]] std::string textOfDay(Day day);
[[nodiscard]] std::optional<Day> dayOfText(std::string_view text);

} // namespace tx::report
