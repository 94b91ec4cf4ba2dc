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

/// Reads the lines of a log, and keeps the position up to which they have been processed. Reads plain and
/// gzip-compressed files. Positions count uncompressed bytes, so that a log is recognized after it was
/// rotated and compressed. Thread: any, one at a time. Needs a buffer of a few hundred kilobytes for a log of
/// any size.
class LogFile {
public:
    /// Opens a log; "-" is standard input. Returns an empty optional and sets `error` if it cannot be opened,
    /// or is neither a file nor a pipe.
    [[nodiscard]] static std::optional<LogFile> open(const std::string &path, std::string &error);

    struct Line {
        std::string_view text;  ///< without the line end; valid until the next call
        bool isFinished = true; ///< false if the log ends before the line does
    };
    /// Returns the next line. Absent at the end of the log or after a read error; see error(). A line longer
    /// than `limit` is cut to `limit` + 1 bytes.
    [[nodiscard]] std::optional<Line> next(size_t limit);
    [[nodiscard]] const std::string &error() const { return m_error; }

    /// False for a pipe, which cannot be read again or from another position.
    [[nodiscard]] bool isRegular() const { return m_isRegular; }

    /// The number of bytes read from the file so far, compressed ones if it is compressed, and its size; 0
    /// for a pipe.
    [[nodiscard]] int64_t bytesRead() const;
    [[nodiscard]] int64_t size() const { return m_size; }

    /// Marks everything up to here as processed. The caller may have read further lines without marking them.
    void mark() { m_mark = m_next; }
    /// Marks everything before the line that next() returned last as processed.
    void markBeforeLine() { m_mark = m_line; }
    /// The number of bytes before the mark.
    [[nodiscard]] int64_t position() const { return m_start + static_cast<int64_t>(m_mark); }

    /// The number of bytes that are compared to recognize a log.
    static constexpr size_t comparedSize = 4096;
    /// digestOfHead() returns the digest of the first `size` bytes, which must have been read already.
    /// digestOfTail() returns the digest of the last bytes before the mark.
    [[nodiscard]] std::optional<std::string> digestOfHead(size_t size) const;
    [[nodiscard]] std::string digestOfTail() const;
    /// Continues at the position of an earlier run. Returns false and goes back to the start if the bytes
    /// before that position are different.
    [[nodiscard]] bool resume(int64_t position, const std::string &tail);

private:
    struct Close {
        void operator()(gzFile_s *file) const;
    };
    explicit LogFile(gzFile_s *file);
    /// Reads more into the buffer; false at the end.
    bool fill();
    bool seek(int64_t position);

    std::unique_ptr<gzFile_s, Close> m_file;
    std::vector<char> m_buffer;
    std::string m_head;
    std::string m_error;
    int64_t m_size = 0;
    int64_t m_start = 0; ///< position of the buffer's first byte in the log
    size_t m_mark = 0;   ///< position in the buffer; the compared bytes before it are kept
    size_t m_line = 0;   ///< start of the line that next() returned
    size_t m_next = 0;
    size_t m_end = 0;
    bool m_isAtEnd = false;
    bool m_isSkipping = false; ///< skipping the rest of a line that is too long
    bool m_isRegular = false;
};

} // namespace tx::report
