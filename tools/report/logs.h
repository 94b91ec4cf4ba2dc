// SPDX-License-Identifier: MIT
#pragma once

#include "report/counts.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tx::report {

struct MalformedLine {
    int64_t line = 0; ///< counted from 1
    std::string reason;
};

/// The result of reading one log.
struct LogResult {
    std::string log;   ///< its name as given
    std::string error; ///< why it could not be read completely; empty after success
    LogState state;    ///< counts of this run and of earlier ones
    int64_t newLines = 0;
    std::vector<MalformedLine> malformed; ///< the first ones of this run
    bool hasUnfinishedLine = false;       ///< the last line is incomplete; the next run reads it again
};

/// Reads the new part of a log. A log is recognized by its content, even if it was renamed or compressed.
/// `dayOfBodies` is the day of request bodies without a time; if absent, these only tell the systems. Returns
/// null if the counts cannot be stored (see counts.error()); nothing of the log is stored in that case.
/// `onProgress` is called while the log is read, on the same thread, with the number of bytes read from the
/// file and its size, which is 0 if unknown.
[[nodiscard]] std::optional<LogResult>
readLog(const std::string &path, Counts &counts, std::optional<Day> dayOfBodies,
        const std::function<void(int64_t done, int64_t total)> &onProgress = {});

} // namespace tx::report
