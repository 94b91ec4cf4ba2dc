// SPDX-License-Identifier: MIT
#pragma once

#include "report/day.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tx::report {

/// The random identifier of an installation (docs/privacy.md).
using Installation = std::array<uint8_t, 16>;

/// What is kept of one check of an application. Nothing else in the log's line is stored.
struct Check {
    std::string_view application;
    std::string_view version;
    Installation installation{};
    std::optional<Day> day;  ///< absent for a profile in a request body without a time
    std::string_view system; ///< empty if no profile was sent
};

enum class Record {
    Check,
    Other,     ///< a request that is not a check
    Malformed, ///< `reason` gives the reason
};

struct Parsed {
    Record record = Record::Other;
    Check check;
    const char *reason = nullptr; ///< of a malformed record, for people
};

/// Parses one record of a log: a line in the common or the combined format, a line of JSON, or a request
/// body. Thread: any, one at a time. It has no errors: any bytes give one of the three kinds of records.
class LogParser {
public:
    LogParser();
    ~LogParser();
    LogParser(const LogParser &) = delete;
    LogParser &operator=(const LogParser &) = delete;

    /// The strings in the result are valid until the next call.
    [[nodiscard]] Parsed parse(std::string_view record);

    /// Longer records are malformed.
    static constexpr size_t maximumSize = 64 * 1024;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

/// Counts the braces of a JSON object over several lines, and ignores braces in strings. Thread: any.
class BraceCounter {
public:
    void add(std::string_view text);
    /// True if at least one brace was opened and all are closed.
    [[nodiscard]] bool isComplete() const { return m_depth <= 0; }

private:
    int m_depth = 0;
    bool m_isInString = false;
    bool m_isEscaped = false;
};

} // namespace tx::report
