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

/// How far a log has been read, and the counts up to there.
struct LogState {
    int64_t id = 0; ///< 0: not stored yet
    int64_t position = 0;
    std::string tail; ///< digest of the bytes before the position
    int64_t lines = 0;
    int64_t checks = 0;
    int64_t others = 0;
    int64_t malformed = 0;
};

/// The activity of installations (installation, day, version), their systems, and how far each log has been
/// read. The data is in an SQLite database that only its owner can read. Equal rows are stored once, so
/// reading a log again counts nothing twice. Thread: any, one at a time; several processes may use the same
/// file and wait for each other. Errors: a failed call changes nothing; see error().
class Counts {
public:
    /// Opens the file, or creates it if it does not exist. An empty path means a database in memory. Returns
    /// null and sets `error` if the file cannot be opened or is something else.
    [[nodiscard]] static std::unique_ptr<Counts> open(const std::string &path, std::string &error);
    ~Counts();
    Counts(const Counts &) = delete;
    Counts &operator=(const Counts &) = delete;

    [[nodiscard]] const std::string &error() const { return m_error; }

    /// Changes between begin() and commit() are written to disk atomically.
    [[nodiscard]] bool begin();
    [[nodiscard]] bool commit();
    void rollBack();

    /// Adds a check that has a day.
    [[nodiscard]] bool add(const Check &check);
    /// Adds the system of an installation from a profile without a day. It applies until a profile with a day
    /// is known.
    [[nodiscard]] bool addSystem(const Check &check);

    /// Lists the lengths of log beginnings whose digests are stored.
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
    /// Lists the applications, sorted by name.
    [[nodiscard]] bool applications(std::vector<std::pair<Id, std::string>> &names);
    /// Returns the last day of activity; absent if there was none.
    [[nodiscard]] bool lastDay(Id application, std::optional<Day> &day);
    /// Calls `use` for each day of activity in the period, ordered by installation and day.
    [[nodiscard]] bool forEach(Id application, Day first, Day last,
                               const std::function<void(const Activity &)> &use);
    /// Lists the systems in an installation's profiles, ordered by day.
    [[nodiscard]] bool systemsOf(const Installation &installation, std::vector<SystemSince> &systems);
    /// Returns a stored name, version or system.
    [[nodiscard]] const std::string &text(Id id);

private:
    explicit Counts(sqlite3 *database)
        : m_database(database) {}
    bool setUp();
    bool run(const char *sql);
    /// Returns a statement that is compiled on first use; null after an error.
    sqlite3_stmt *statement(const char *sql);
    /// Runs a statement that returns no rows.
    bool finish(sqlite3_stmt *statement);
    bool fail();
    bool idOf(std::string_view text, Id &id);
    bool flush();

    struct Row {
        Id application;
        std::array<uint64_t, 2>
            installation; ///< the bytes as two numbers, which compare faster and in the same order
        Day day;
        Id version;
        auto operator<=>(const Row &) const = default;
    };
    /// Inserts one row, or as many as one statement inserts.
    bool insert(const Row *rows, size_t count);
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
