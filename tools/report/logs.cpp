// SPDX-License-Identifier: MIT
#include "report/logs.h"

#include "report/logfile.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace tx::report {

namespace {

constexpr size_t namedLines = 10;
constexpr const char *withoutEnd = "a JSON object without its end";

/// Reads one log and adds its records to the counts.
class Reader {
public:
    Reader(LogFile &log, Counts &counts, LogResult &result, std::optional<Day> dayOfBodies)
        : m_log(log)
        , m_counts(counts)
        , m_result(result)
        , m_dayOfBodies(dayOfBodies) {}

    /// Returns false if the counts cannot be stored.
    bool readAll(const std::function<void(int64_t, int64_t)> &onProgress) {
        constexpr int linesBetween = 256;
        int lines = 0;
        while (const std::optional<LogFile::Line> line = m_log.next(LogParser::maximumSize)) {
            if (!read(*line))
                return false;
            if (onProgress && ++lines % linesBetween == 0)
                onProgress(m_log.bytesRead(), m_log.size());
        }
        return true;
    }

    /// Call this after the position was stored. An incomplete object at the end of the log is read again in
    /// the next run, when the rest of it may have been written.
    void noteObjectAtEnd() {
        if (m_object.empty())
            return;
        malformed(m_objectLine, withoutEnd);
        m_result.state.lines += m_pendingLines;
    }

private:
    bool read(const LogFile::Line &line) {
        const int64_t number = m_result.state.lines + m_pendingLines + 1;
        const bool beginsObject = line.text.starts_with('{');
        const bool continues = line.text.empty() || line.text.find_first_of(" \t}") == 0;
        if (!m_object.empty() && !continues) {
            // Lines inside an object are indented, so the previous object has no end.
            malformed(m_objectLine, withoutEnd);
            m_object.clear();
            m_result.state.lines += m_pendingLines;
            m_result.newLines += std::exchange(m_pendingLines, 0);
            m_log.markBeforeLine();
        }
        if (m_object.empty() && beginsObject && line.isFinished) {
            // Most objects are in one line. The parser recognizes them faster than counting braces does.
            const Parsed parsed = m_parser.parse(line.text);
            if (parsed.record != Record::Malformed)
                return count(parsed, number, 1, true);
        }
        if (!m_object.empty() || beginsObject) {
            if (m_object.empty()) {
                m_objectLine = number;
                m_braces = {};
            }
            m_braces.add(line.text);
            if (m_object.empty() && m_braces.isComplete())
                return take(line.text, number, 1, line.isFinished);
            m_object.append(line.text).append(1, '\n');
            ++m_pendingLines;
            if (!line.isFinished && !m_braces.isComplete()) {
                m_result.hasUnfinishedLine = true;
                m_object.clear();
                return true;
            }
            if (!m_braces.isComplete() && m_object.size() <= LogParser::maximumSize)
                return true;
            const std::string object = std::exchange(m_object, {});
            return take(object, m_objectLine, std::exchange(m_pendingLines, 0), line.isFinished);
        }
        if (line.text.find_first_not_of(" \t") == std::string_view::npos) {
            settle(1, line.isFinished);
            return true;
        }
        return take(line.text, number, 1, line.isFinished);
    }

    /// Counts a record of `lines` lines that begins at line `number`.
    bool take(std::string_view record, int64_t number, int64_t lines, bool isFinished) {
        return count(m_parser.parse(record), number, lines, isFinished);
    }

    bool count(const Parsed &parsed, int64_t number, int64_t lines, bool isFinished) {
        if (!isFinished && parsed.record == Record::Malformed) {
            m_result.hasUnfinishedLine = true;
            return true;
        }
        if (parsed.record == Record::Malformed) {
            malformed(number, parsed.reason);
        } else if (parsed.record == Record::Check) {
            Check check = parsed.check;
            if (!check.day)
                check.day = m_dayOfBodies;
            if (check.day ? !m_counts.add(check) : !check.system.empty() && !m_counts.addSystem(check))
                return false;
            m_result.state.checks += isFinished;
        } else {
            m_result.state.others += isFinished;
        }
        m_result.hasUnfinishedLine |= !isFinished;
        settle(lines, isFinished);
        return true;
    }

    /// Marks these lines as processed. An unfinished line is read again in the next run, which counts nothing
    /// twice.
    void settle(int64_t lines, bool isFinished) {
        if (!isFinished)
            return;
        m_result.state.lines += lines;
        m_result.newLines += lines;
        m_log.mark();
    }
    void malformed(int64_t line, const char *reason) {
        ++m_result.state.malformed;
        if (m_result.malformed.size() < namedLines)
            m_result.malformed.push_back({line, reason});
    }

    LogFile &m_log;
    Counts &m_counts;
    LogResult &m_result;
    const std::optional<Day> m_dayOfBodies;
    LogParser m_parser;
    std::string m_object; ///< the lines of an object whose end has not been read yet
    BraceCounter m_braces;
    int64_t m_objectLine = 0;
    int64_t m_pendingLines = 0;
};

/// Finds the log among those that were read before, and resumes where its last run ended. Returns false if
/// the counts fail.
bool recognize(LogFile &log, Counts &counts, LogState &state) {
    std::vector<size_t> sizes;
    if (!log.isRegular())
        return true;
    if (!counts.headSizes(sizes))
        return false;
    // The longest matching beginning identifies the log best.
    std::sort(sizes.rbegin(), sizes.rend());
    for (const size_t size : sizes) {
        std::vector<LogState> candidates;
        const std::optional<std::string> digest = log.digestOfHead(size);
        if (digest && !counts.logsWithHead(*digest, size, candidates))
            return false;
        for (LogState &candidate : candidates) {
            if (log.resume(candidate.position, candidate.tail)) {
                state = std::move(candidate);
                return true;
            }
        }
    }
    return true;
}

bool readInto(LogFile &log, Counts &counts, LogResult &result, std::optional<Day> dayOfBodies,
              const std::function<void(int64_t, int64_t)> &onProgress) {
    if (!recognize(log, counts, result.state))
        return false;
    Reader reader(log, counts, result, dayOfBodies);
    if (!reader.readAll(onProgress))
        return false;
    result.error = log.error();
    result.state.position = log.position();
    const size_t headSize = std::min<size_t>(LogFile::comparedSize, static_cast<size_t>(log.position()));
    const std::optional<std::string> head = log.digestOfHead(headSize);
    if (head && log.isRegular()) {
        result.state.tail = log.digestOfTail();
        if (!counts.store(result.state, *head, headSize))
            return false;
    }
    reader.noteObjectAtEnd();
    return true;
}

} // namespace

std::optional<LogResult> readLog(const std::string &path, Counts &counts, std::optional<Day> dayOfBodies,
                                 const std::function<void(int64_t done, int64_t total)> &onProgress) {
    LogResult result;
    result.log = path;
    std::optional<LogFile> log = LogFile::open(path, result.error);
    if (!log)
        return result;
    if (!counts.begin())
        return std::nullopt;
    if (!readInto(*log, counts, result, dayOfBodies, onProgress) || !counts.commit()) {
        counts.rollBack();
        return std::nullopt;
    }
    return result;
}

} // namespace tx::report
