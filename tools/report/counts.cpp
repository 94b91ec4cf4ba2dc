// SPDX-License-Identifier: MIT
#include "report/counts.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tx::report {

namespace {

/// "TXrp" in the file header, and the schema version.
constexpr int applicationId = 0x54587270;
constexpr int formatVersion = 1;
/// How long a process waits, in milliseconds, for another one that writes to the same file.
constexpr int patience = 60'000;
/// Rows are collected and sorted before they are stored. In the order of the B-tree, each page is written
/// only once.
constexpr size_t rowsAtOnce = 1'000'000;
constexpr size_t textsAtOnce = 100'000;
/// A statement that inserts several rows takes two thirds of the time of one statement for each row.
constexpr size_t rowsInStatement = 32;

const char *tables = R"(
CREATE TABLE text (id INTEGER PRIMARY KEY, text TEXT NOT NULL UNIQUE);
CREATE TABLE activity (application INTEGER NOT NULL, installation BLOB NOT NULL, day INTEGER NOT NULL,
    version INTEGER NOT NULL, PRIMARY KEY (application, installation, day, version)) WITHOUT ROWID;
CREATE TABLE system (installation BLOB NOT NULL, day INTEGER NOT NULL, system INTEGER NOT NULL,
    PRIMARY KEY (installation, day)) WITHOUT ROWID;
CREATE TABLE log (id INTEGER PRIMARY KEY, headSize INTEGER NOT NULL, head BLOB NOT NULL, position INTEGER NOT NULL,
    tail BLOB NOT NULL, lines INTEGER NOT NULL, checks INTEGER NOT NULL, others INTEGER NOT NULL,
    malformed INTEGER NOT NULL);
CREATE INDEX logHead ON log (head);
)";

void bindBytes(sqlite3_stmt *statement, int index, const Installation &installation) {
    sqlite3_bind_blob(statement, index, installation.data(), static_cast<int>(installation.size()),
                      SQLITE_STATIC);
}

void bindBytes(sqlite3_stmt *statement, int index, const std::string &bytes) {
    sqlite3_bind_blob(statement, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
}

std::array<uint64_t, 2> numbersOf(const Installation &installation) {
    std::array<uint64_t, 2> numbers{};
    for (size_t i = 0; i < installation.size(); ++i)
        numbers[i / 8] = numbers[i / 8] << 8 | installation[i];
    return numbers;
}

Installation bytesOf(const std::array<uint64_t, 2> &numbers) {
    Installation installation{};
    for (size_t i = 0; i < installation.size(); ++i)
        installation[i] = static_cast<uint8_t>(numbers[i / 8] >> (56 - 8 * (i % 8)));
    return installation;
}

} // namespace

std::unique_ptr<Counts> Counts::open(const std::string &path, std::string &error) {
    if (!path.empty()) {
        // Created here, because SQLite would create the file readable for everybody.
        const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (file < 0) {
            error = errno == ELOOP ? "it is a link; name the file itself" : std::strerror(errno);
            return nullptr;
        }
        close(file);
    }
    sqlite3 *database = nullptr;
    const int result =
        sqlite3_open_v2(path.empty() ? ":memory:" : path.c_str(), &database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<Counts> counts(new Counts(database));
    if (result != SQLITE_OK || !counts->setUp()) {
        error = counts->m_error.empty() ? sqlite3_errmsg(database) : counts->m_error;
        return nullptr;
    }
    return counts;
}

Counts::~Counts() {
    for (const auto &[sql, statement] : m_statements)
        sqlite3_finalize(statement);
    sqlite3_close(m_database);
}

bool Counts::setUp() {
    sqlite3_busy_timeout(m_database, patience);
    if (!run("PRAGMA foreign_keys = OFF; BEGIN IMMEDIATE"))
        return false;
    const auto number = [&](const char *sql) {
        sqlite3_stmt *query = statement(sql);
        const int value = query && sqlite3_step(query) == SQLITE_ROW ? sqlite3_column_int(query, 0) : -1;
        if (query)
            sqlite3_reset(query);
        return value;
    };
    if (number("SELECT count(*) FROM sqlite_schema") == 0) {
        const std::string identity = "PRAGMA application_id = " + std::to_string(applicationId) +
                                     "; PRAGMA user_version = " + std::to_string(formatVersion);
        return (run(tables) && run(identity.c_str()) && run("COMMIT")) || (rollBack(), false);
    }
    const bool isOurs = number("PRAGMA application_id") == applicationId;
    const int version = number("PRAGMA user_version");
    rollBack();
    if (isOurs && version == formatVersion)
        return true;
    m_error = isOurs ? "it was made by a newer version of this program; use that one, or another file"
                     : "it is a database of something else; name another file";
    return false;
}

bool Counts::fail() {
    m_error = sqlite3_errmsg(m_database);
    return false;
}

bool Counts::run(const char *sql) {
    return sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) == SQLITE_OK || fail();
}

sqlite3_stmt *Counts::statement(const char *sql) {
    sqlite3_stmt *&prepared = m_statements[sql];
    if (!prepared && sqlite3_prepare_v2(m_database, sql, -1, &prepared, nullptr) != SQLITE_OK)
        fail();
    return prepared;
}

bool Counts::finish(sqlite3_stmt *statement) {
    const int result = sqlite3_step(statement);
    sqlite3_reset(statement);
    return result == SQLITE_DONE || fail();
}

bool Counts::begin() { return run("BEGIN IMMEDIATE"); }

bool Counts::commit() { return flush() && run("COMMIT"); }

void Counts::rollBack() {
    m_rows.clear();
    // The rollback also removes the identifiers of new strings.
    m_ids.clear();
    m_texts.clear();
    // Fails if SQLite has already rolled back.
    sqlite3_exec(m_database, "ROLLBACK", nullptr, nullptr, nullptr);
}

bool Counts::idOf(std::string_view text, Id &id) {
    if (const auto found = m_ids.find(text); found != m_ids.end()) {
        id = found->second;
        return true;
    }
    sqlite3_stmt *insert = statement("INSERT OR IGNORE INTO text (text) VALUES (?)");
    sqlite3_stmt *select = statement("SELECT id FROM text WHERE text = ?");
    if (!insert || !select)
        return false;
    const auto size = static_cast<int>(text.size());
    sqlite3_bind_text(insert, 1, text.data(), size, SQLITE_STATIC);
    sqlite3_bind_text(select, 1, text.data(), size, SQLITE_STATIC);
    if (!finish(insert))
        return false;
    const bool isFound = sqlite3_step(select) == SQLITE_ROW;
    id = sqlite3_column_int(select, 0);
    sqlite3_reset(select);
    if (!isFound)
        return fail();
    if (m_ids.size() >= textsAtOnce)
        m_ids.clear();
    m_ids.emplace(text, id);
    return true;
}

bool Counts::add(const Check &check) {
    Row row{0, numbersOf(check.installation), check.day.value_or(0), 0};
    if (!idOf(check.application, row.application) || !idOf(check.version, row.version))
        return false;
    m_rows.push_back(row);
    if (!check.system.empty() && !addSystem(check))
        return false;
    return m_rows.size() < rowsAtOnce || flush();
}

bool Counts::addSystem(const Check &check) {
    Id system = 0;
    sqlite3_stmt *insert = statement("INSERT OR REPLACE INTO system VALUES (?, ?, ?)");
    if (!insert || !idOf(check.system, system))
        return false;
    bindBytes(insert, 1, check.installation);
    sqlite3_bind_int(insert, 2, check.day.value_or(0));
    sqlite3_bind_int(insert, 3, system);
    return finish(insert);
}

bool Counts::insert(const Row *rows, size_t count) {
    static const auto sqlFor = [](size_t number) {
        std::string sql = "INSERT OR IGNORE INTO activity VALUES (?, ?, ?, ?)";
        for (size_t i = 1; i < number; ++i)
            sql += ", (?, ?, ?, ?)";
        return sql;
    };
    static const std::string one = sqlFor(1);
    static const std::string several = sqlFor(rowsInStatement);
    sqlite3_stmt *insert = statement((count == 1 ? one : several).c_str());
    if (!insert)
        return false;
    std::array<Installation, rowsInStatement> installations{}; // must exist until the statement has run
    int column = 1;
    for (size_t i = 0; i < count; ++i) {
        installations[i] = bytesOf(rows[i].installation);
        sqlite3_bind_int(insert, column++, rows[i].application);
        bindBytes(insert, column++, installations[i]);
        sqlite3_bind_int(insert, column++, rows[i].day);
        sqlite3_bind_int(insert, column++, rows[i].version);
    }
    return finish(insert);
}

bool Counts::flush() {
    std::sort(m_rows.begin(), m_rows.end());
    m_rows.erase(std::unique(m_rows.begin(), m_rows.end()), m_rows.end());
    for (size_t i = 0; i < m_rows.size();) {
        const size_t count = m_rows.size() - i < rowsInStatement ? 1 : rowsInStatement;
        if (!insert(&m_rows[i], count))
            return false;
        i += count;
    }
    m_rows.clear();
    return true;
}

bool Counts::headSizes(std::vector<size_t> &sizes) {
    sqlite3_stmt *select = statement("SELECT DISTINCT headSize FROM log");
    if (!select)
        return false;
    int result = SQLITE_OK;
    while ((result = sqlite3_step(select)) == SQLITE_ROW)
        sizes.push_back(static_cast<size_t>(sqlite3_column_int64(select, 0)));
    sqlite3_reset(select);
    return result == SQLITE_DONE || fail();
}

bool Counts::logsWithHead(const std::string &digest, size_t size, std::vector<LogState> &logs) {
    sqlite3_stmt *select = statement("SELECT id, position, tail, lines, checks, others, malformed FROM log "
                                     "WHERE head = ? AND headSize = ? ORDER BY position DESC");
    if (!select)
        return false;
    bindBytes(select, 1, digest);
    sqlite3_bind_int64(select, 2, static_cast<int64_t>(size));
    int result = SQLITE_OK;
    while ((result = sqlite3_step(select)) == SQLITE_ROW) {
        const auto number = [&](int column) { return sqlite3_column_int64(select, column); };
        const void *tail = sqlite3_column_blob(select, 2);
        logs.push_back({number(0), number(1),
                        std::string(static_cast<const char *>(tail),
                                    static_cast<size_t>(sqlite3_column_bytes(select, 2))),
                        number(3), number(4), number(5), number(6)});
    }
    sqlite3_reset(select);
    return result == SQLITE_DONE || fail();
}

bool Counts::store(LogState &log, const std::string &headDigest, size_t headSize) {
    sqlite3_stmt *insert = statement("INSERT OR REPLACE INTO log VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    if (!insert)
        return false;
    if (log.id == 0)
        sqlite3_bind_null(insert, 1);
    else
        sqlite3_bind_int64(insert, 1, log.id);
    sqlite3_bind_int64(insert, 2, static_cast<int64_t>(headSize));
    bindBytes(insert, 3, headDigest);
    sqlite3_bind_int64(insert, 4, log.position);
    bindBytes(insert, 5, log.tail);
    int column = 6;
    for (const int64_t number : {log.lines, log.checks, log.others, log.malformed})
        sqlite3_bind_int64(insert, column++, number);
    if (!finish(insert))
        return false;
    log.id = sqlite3_last_insert_rowid(m_database);
    return true;
}

bool Counts::applications(std::vector<std::pair<Id, std::string>> &names) {
    // Each step of the query skips all rows of one application.
    sqlite3_stmt *select =
        statement("WITH RECURSIVE seen (id) AS (SELECT min(application) FROM activity UNION ALL "
                  "SELECT (SELECT min(application) FROM activity WHERE application > seen.id) "
                  "FROM seen WHERE seen.id IS NOT NULL) "
                  "SELECT text.id, text FROM seen JOIN text ON text.id = seen.id ORDER BY text");
    if (!select)
        return false;
    int result = SQLITE_OK;
    while ((result = sqlite3_step(select)) == SQLITE_ROW)
        names.emplace_back(sqlite3_column_int(select, 0),
                           reinterpret_cast<const char *>(sqlite3_column_text(select, 1)));
    sqlite3_reset(select);
    return result == SQLITE_DONE || fail();
}

bool Counts::lastDay(Id application, std::optional<Day> &day) {
    sqlite3_stmt *select = statement("SELECT max(day) FROM activity WHERE application = ?");
    if (!select)
        return false;
    sqlite3_bind_int(select, 1, application);
    const bool isFound = sqlite3_step(select) == SQLITE_ROW;
    if (isFound && sqlite3_column_type(select, 0) != SQLITE_NULL)
        day = sqlite3_column_int(select, 0);
    sqlite3_reset(select);
    return isFound || fail();
}

bool Counts::forEach(Id application, Day first, Day last, const std::function<void(const Activity &)> &use) {
    sqlite3_stmt *select =
        statement("SELECT installation, day, version FROM activity "
                  "WHERE application = ? AND day BETWEEN ? AND ? ORDER BY installation, day");
    if (!select)
        return false;
    sqlite3_bind_int(select, 1, application);
    sqlite3_bind_int(select, 2, first);
    sqlite3_bind_int(select, 3, last);
    int result = SQLITE_OK;
    while ((result = sqlite3_step(select)) == SQLITE_ROW) {
        Activity activity{{}, sqlite3_column_int(select, 1), sqlite3_column_int(select, 2)};
        const void *bytes = sqlite3_column_blob(select, 0);
        if (!bytes || sqlite3_column_bytes(select, 0) != static_cast<int>(activity.installation.size()))
            continue;
        std::memcpy(activity.installation.data(), bytes, activity.installation.size());
        use(activity);
    }
    sqlite3_reset(select);
    return result == SQLITE_DONE || fail();
}

bool Counts::systemsOf(const Installation &installation, std::vector<SystemSince> &systems) {
    systems.clear();
    sqlite3_stmt *select = statement("SELECT day, system FROM system WHERE installation = ? ORDER BY day");
    if (!select)
        return false;
    bindBytes(select, 1, installation);
    int result = SQLITE_OK;
    while ((result = sqlite3_step(select)) == SQLITE_ROW)
        systems.push_back({sqlite3_column_int(select, 0), sqlite3_column_int(select, 1)});
    sqlite3_reset(select);
    return result == SQLITE_DONE || fail();
}

const std::string &Counts::text(Id id) {
    const auto [entry, isNew] = m_texts.try_emplace(id);
    sqlite3_stmt *select = isNew ? statement("SELECT text FROM text WHERE id = ?") : nullptr;
    if (select) {
        sqlite3_bind_int(select, 1, id);
        if (sqlite3_step(select) == SQLITE_ROW)
            entry->second = reinterpret_cast<const char *>(sqlite3_column_text(select, 0));
        sqlite3_reset(select);
    }
    return entry->second;
}

} // namespace tx::report
