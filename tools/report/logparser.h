// SPDX-License-Identifier: MIT
#pragma once

#include "report/day.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tx::report {

/// The random number of an installation (docs/privacy.md).
using Installation = std::array<uint8_t, 16>;

/// What one check of an application tells. Nothing else of a log's line is kept.
struct Check {
    std::string_view application;
    std::string_view version;
    Installation installation{};
    std::optional<Day> day;  ///< absent in a profile body without a time
    std::string_view system; ///< empty: it sent no profile
};

enum class Record {
    Check,
    Other,     ///< a request that is no check
    Malformed, ///< `reason` says why
};

struct Parsed {
    Record record = Record::Other;
    Check check;
    const char *reason = nullptr; ///< of a malformed record, for people
};

/// Reads one record of a log: a line in the common or the combined format, a line of JSON, or a request's
/// body. Thread: any, one at a time. No errors: whatever the bytes are, the answer is one of the three
/// records.
class LogParser {
public:
    LogParser();
    ~LogParser();
    LogParser(const LogParser &) = delete;
    LogParser &operator=(const LogParser &) = delete;

    /// The strings of the result are valid until the next call.
    [[nodiscard]] Parsed parse(std::string_view record);

    /// Longer records are malformed.
    static constexpr size_t maximumSize = 64 * 1024;

private:
    struct Data;
    std::unique_ptr<Data> d;
};

/// Follows the braces of a JSON object through lines; strings may contain any. Thread: any.
class BraceCounter {
public:
    void add(std::string_view text);
    /// As many braces closed as opened, and at least one.
    [[nodiscard]] bool isComplete() const { return m_depth <= 0; }

private:
    int m_depth = 0;
    bool m_isInString = false;
    bool m_isEscaped = false;
};

} // namespace tx::report
