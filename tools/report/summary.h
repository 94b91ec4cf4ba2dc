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
    std::string name; ///< empty for an unknown system
    int64_t installations = 0;
};

struct DayCounts {
    Day day = 0;
    int64_t installations = 0;
    std::vector<Share>
        versions; ///< counts each installation once, with the newest of its versions on that day
    std::vector<Share> systems;
};

/// The active installations of an application in a period.
struct Summary {
    std::string application;
    Day first = 0;
    Day last = 0;
    int64_t installations = 0;   ///< each counted once
    std::vector<Share> versions; ///< version on each installation's last active day; newest first
    std::vector<Share> systems;  ///< system on that day; most frequent first
    std::vector<DayCounts> days; ///< all days of the period
};

struct Period {
    std::optional<Day> last; ///< if absent, the last day on which the application was active
    int days = 30;
};

/// Returns true if version `a` is older than `b`.
using IsOlder = std::function<bool(const std::string &a, const std::string &b)>;

/// Returns one summary for each application, or for the named one. Absent if the counts cannot be read.
[[nodiscard]] std::optional<std::vector<Summary>> summarize(Counts &counts, const std::string &application,
                                                            const Period &period, const IsOlder &isOlder);

/// One installation on one day with one version, for other programs to evaluate.
struct Row {
    Day day;
    std::string_view application;
    std::string_view version;
    std::string_view system; ///< empty if unknown
    Installation installation;
};
/// Calls `use` for all rows of the given applications and period.
[[nodiscard]] bool forEachRow(Counts &counts, const std::string &application, const Period &period,
                              const std::function<void(const Row &)> &use);

} // namespace tx::report
