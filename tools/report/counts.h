// SPDX-License-Identifier: MIT
#pragma once

#include "report/logparser.h"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace tx::report {

/// How far a log was read, and what was found in it up to there.
struct LogState {
    int64_t id = 0; ///< 0: not stored yet
    int64_t position = 0;
    std::string tail; ///< digest of the bytes before the position
    int64_t lines = 0;
    int64_t checks = 0;
    int64_t others = 0;
    int64_t malformed = 0;
};

/// Which installation was active on which day with which version, and which system it has; and how far each
/// log was read. An SQLite database that only its owner can read. The same row twice is one row, so nothing
/// is counted twice when a log is read again. Thread: any, one at a time; several processes take turns.
/// Errors: a failed call changes nothing; error() says what happened.
class Counts {
public:
    /// Creates the file if there is none. Empty path: in memory. Null when it cannot be opened or holds
    /// something else; `error` says why.
    [[nodiscard]] static std::unique_ptr<Counts> open(const std::string &path, std::string &error);
    ~Counts();
    Counts(const Counts &) = delete;
    Counts &operator=(const Counts &) = delete;

    [[nodiscard]] const std::string &error() const { return m_error; }

    /// Everything between the two becomes visible, and is on disk, at once or not at all.
    [[nodiscard]] bool begin();
    [[nodiscard]] bool commit();
    void rollBack();

    /// A check with its day.
    [[nodiscard]] bool add(const Check &check);
    /// The system of an installation without a day, which holds until it is known for a day.
    [[nodiscard]] bool addSystem(const Check &check);

    /// The sizes of beginnings by which logs are known.
    [[nodiscard]] bool headSizes(std::vector<size_t> &sizes);
    [[nodiscard]] bool logsWithHead(const std::string &digest, size_t size, std::vector<LogState> &logs);
    [[nodiscard]] bool store(LogState &log, const std::string &headDigest, size_t headSize);

    using Id = int32_t;
    struct Activity {
        Installation installation;
        Day day;
        Id version;
    };
    struct SystemSince {
        Day day;
        Id system;
    };
    /// The applications in order of their names.
    [[nodiscard]] bool applications(std::vector<std::pair<Id, std::string>> &names);
    /// Absent when it was never active.
    [[nodiscard]] bool lastDay(Id application, std::optional<Day> &day);
    /// Calls `use` for each day of activity in the period, ordered by installation and day.
    [[nodiscard]] bool forEach(Id application, Day first, Day last,
                               const std::function<void(const Activity &)> &use);
    /// What an installation's profiles said, ordered by day.
    [[nodiscard]] bool systemsOf(const Installation &installation, std::vector<SystemSince> &systems);
    /// A name, version or system.
    [[nodiscard]] const std::string &text(Id id);

private:
    explicit Counts(sqlite3 *database)
        : m_database(database) {}
    bool setUp();
    bool run(const char *sql);
    /// A statement, compiled once; null with an error.
    sqlite3_stmt *statement(const char *sql);
    /// Runs a statement that gives no rows.
    bool finish(sqlite3_stmt *statement);
    bool fail();
    bool idOf(std::string_view text, Id &id);
    bool flush();

    struct Row {
        Id application;
        std::array<uint64_t, 2>
            installation; ///< the bytes as numbers, which compare faster in the same order
        Day day;
        Id version;
        auto operator<=>(const Row &) const = default;
    };
    struct TextHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    sqlite3 *m_database;
    std::unordered_map<const char *, sqlite3_stmt *> m_statements;
    std::unordered_map<std::string, Id, TextHash, std::equal_to<>> m_ids;
    std::unordered_map<Id, std::string> m_texts;
    std::vector<Row> m_rows;
    std::string m_error;
};

} // namespace tx::report
