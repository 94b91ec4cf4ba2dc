// SPDX-License-Identifier: MIT
#pragma once

#include "report/counts.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tx::report {

struct MalformedLine {
    int64_t line = 0; ///< from 1
    std::string reason;
};

/// What was found in one log.
struct LogResult {
    std::string log;   ///< as it was named
    std::string error; ///< why it could not be read, or not to its end; empty when it was
    LogState state;    ///< counts of this run and of those before
    int64_t newLines = 0;
    std::vector<MalformedLine> malformed; ///< the first ones of this run
    bool hasUnfinishedLine = false;       ///< at the end; it is read again next time
};

/// Reads what is new in a log. A log is known again by its content, whatever its name is now, also after it
/// was compressed. `dayOfBodies`: of bodies that have no time; absent: they only tell the systems. Null when
/// the counts cannot be stored; counts.error() says why. Nothing of the log is stored then.
[[nodiscard]] std::optional<LogResult> readLog(const std::string &path, Counts &counts,
                                               std::optional<Day> dayOfBodies);

} // namespace tx::report
