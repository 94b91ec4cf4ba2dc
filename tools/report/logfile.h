// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct gzFile_s;

namespace tx::report {

/// A log's lines and the place where it was read to. Reads plain and gzip-compressed files alike; places
/// count uncompressed bytes, so a log that is compressed when it is rotated is still the same one. Thread:
/// any, one at a time. A log of any size takes a buffer of a few hundred kilobytes.
class LogFile {
public:
    /// "-" is standard input. Absent when it cannot be opened, or is neither a file nor a pipe; `error` says
    /// why.
    [[nodiscard]] static std::optional<LogFile> open(const std::string &path, std::string &error);

    struct Line {
        std::string_view text;  ///< without its end; valid until the next call
        bool isFinished = true; ///< false: the end of the log came before the end of the line
    };
    /// Absent at the end of the log, or when it cannot be read further; error() says which. A line that is
    /// longer than `limit` comes as its first `limit` bytes and one more.
    [[nodiscard]] std::optional<Line> next(size_t limit);
    [[nodiscard]] const std::string &error() const { return m_error; }

    /// False for a pipe: it cannot be read again, nor from another place.
    [[nodiscard]] bool isRegular() const { return m_isRegular; }

    /// Remembers that everything up to here has been dealt with. Lines after it may be read without this.
    void mark() { m_mark = m_next; }
    /// The same, but for the line that next() gave last.
    void markBeforeLine() { m_mark = m_line; }
    /// Bytes before the mark.
    [[nodiscard]] int64_t position() const { return m_start + static_cast<int64_t>(m_mark); }

    /// So many bytes are compared to know a log again.
    static constexpr size_t comparedSize = 4096;
    /// Digests of the first `size` bytes, which must be read already, and of the last ones before the mark.
    [[nodiscard]] std::optional<std::string> digestOfHead(size_t size) const;
    [[nodiscard]] std::string digestOfTail() const;
    /// Goes on at an earlier run's place. False when the bytes before it are not those; the log is then at
    /// its start again.
    [[nodiscard]] bool resume(int64_t position, const std::string &tail);

private:
    struct Close {
        void operator()(gzFile_s *file) const;
    };
    explicit LogFile(gzFile_s *file);
    /// Reads more behind the buffer's content; false at the end.
    bool fill();
    bool seek(int64_t position);

    std::unique_ptr<gzFile_s, Close> m_file;
    std::vector<char> m_buffer;
    std::string m_head;
    std::string m_error;
    int64_t m_start = 0; ///< of the buffer's first byte in the log
    size_t m_mark = 0;   ///< in the buffer; what is compared stays before it
    size_t m_line = 0;   ///< where the line begins that next() gave
    size_t m_next = 0;
    size_t m_end = 0;
    bool m_isAtEnd = false;
    bool m_isSkipping = false; ///< the rest of a line that is too long
    bool m_isRegular = false;
};

} // namespace tx::report
