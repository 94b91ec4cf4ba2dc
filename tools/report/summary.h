// SPDX-License-Identifier: MIT
#pragma once

#include "report/counts.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tx::report {

struct Share {
    std::string name; ///< empty: a system that is not known
    int64_t installations = 0;
};

struct DayCounts {
    Day day = 0;
    int64_t installations = 0;
    std::vector<Share> versions; ///< each installation once, with the newest of its versions on that day
    std::vector<Share> systems;
};

/// The active installations of an application in a period.
struct Summary {
    std::string application;
    Day first = 0;
    Day last = 0;
    int64_t installations = 0;   ///< each once
    std::vector<Share> versions; ///< by the version on the last day on which each was active; newest first
    std::vector<Share> systems;  ///< the same; most frequent first
    std::vector<DayCounts> days; ///< all days of the period
};

struct Period {
    std::optional<Day> last; ///< absent: the last day on which the application was seen
    int days = 30;
};

/// Whether version `a` is older than `b`.
using IsOlder = std::function<bool(const std::string &a, const std::string &b)>;

/// One summary for each application, or for the one that is named. Absent when the counts cannot be read.
[[nodiscard]] std::optional<std::vector<Summary>> summarize(Counts &counts, const std::string &application,
                                                            const Period &period, const IsOlder &isOlder);

/// One installation on one day with one version, for programs that count themselves.
struct Row {
    Day day;
    std::string_view application;
    std::string_view version;
    std::string_view system; ///< empty: not known
    Installation installation;
};
/// Calls `use` for all rows of the same applications and periods.
[[nodiscard]] bool forEachRow(Counts &counts, const std::string &application, const Period &period,
                              const std::function<void(const Row &)> &use);

} // namespace tx::report
