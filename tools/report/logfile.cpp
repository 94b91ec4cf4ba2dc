// SPDX-License-Identifier: MIT
#include "report/logfile.h"

#include "trust/digest.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <zlib.h>

namespace tx::report {

namespace {

constexpr size_t blockSize = 256 * 1024;

std::string digest(std::string_view bytes) {
    const trust::Digest whole = trust::digestOf(bytes);
    return {reinterpret_cast<const char *>(whole.data()), 16};
}

} // namespace

void LogFile::Close::operator()(gzFile_s *file) const { gzclose(file); }

LogFile::LogFile(gzFile_s *file)
    : m_file(file)
    , m_buffer(2 * blockSize) {}

std::optional<LogFile> LogFile::open(const std::string &path, std::string &error) {
    const int descriptor = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                       : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    struct stat info {};
    if (descriptor < 0 || fstat(descriptor, &info) != 0) {
        error = std::strerror(errno);
        if (descriptor >= 0)
            close(descriptor);
        return std::nullopt;
    }
    if (S_ISDIR(info.st_mode)) {
        close(descriptor);
        error = "it is a folder; name the files in it";
        return std::nullopt;
    }
    gzFile_s *file = gzdopen(descriptor, "rb");
    if (!file) {
        close(descriptor);
        error = "not enough memory";
        return std::nullopt;
    }
    gzbuffer(file, blockSize);
    LogFile log(file);
    log.m_isRegular = S_ISREG(info.st_mode);
    log.m_size = log.m_isRegular ? info.st_size : 0;
    while (log.m_end < comparedSize && log.fill()) {
    }
    log.m_head.assign(log.m_buffer.data(), std::min(comparedSize, log.m_end));
    return log;
}

int64_t LogFile::bytesRead() const {
    return m_isRegular ? gzoffset(m_file.get()) : m_start + static_cast<int64_t>(m_end);
}

bool LogFile::fill() {
    if (m_isAtEnd)
        return false;
    // Keep the compared bytes before the mark, and everything that has not been processed.
    const size_t keepFrom = m_mark - std::min(m_mark, comparedSize);
    if (keepFrom > 0 && m_buffer.size() - m_end < blockSize) {
        std::memmove(m_buffer.data(), m_buffer.data() + keepFrom, m_end - keepFrom);
        m_start += static_cast<int64_t>(keepFrom);
        m_mark -= keepFrom;
        m_next -= keepFrom;
        m_end -= keepFrom;
    }
    if (m_buffer.size() - m_end < blockSize)
        m_buffer.resize(m_end + blockSize);
    const int count = gzread(m_file.get(), m_buffer.data() + m_end, blockSize);
    int code = Z_OK;
    const char *message = gzerror(m_file.get(), &code);
    if (count <= 0) {
        m_isAtEnd = true;
        if (code == Z_BUF_ERROR)
            m_error = "the compressed log ends too early";
        else if (code == Z_ERRNO)
            m_error = std::strerror(errno);
        else if (code != Z_OK && code != Z_STREAM_END)
            m_error = message;
        return false;
    }
    m_end += static_cast<size_t>(count);
    return true;
}

std::optional<LogFile::Line> LogFile::next(size_t limit) {
    size_t searched = 0; // number of bytes after m_next that are known to contain no line end
    for (;;) {
        const char *start = m_buffer.data() + m_next;
        const size_t available = m_end - m_next;
        const void *newline =
            available > searched ? std::memchr(start + searched, '\n', available - searched) : nullptr;
        if (newline) {
            auto size = static_cast<size_t>(static_cast<const char *>(newline) - start);
            m_line = m_next;
            m_next += size + 1;
            searched = 0;
            if (std::exchange(m_isSkipping, false))
                continue;
            if (size > 0 && start[size - 1] == '\r')
                --size;
            return Line{{start, std::min(size, limit + 1)}, true};
        }
        if (m_isSkipping) {
            // The line was refused. Its content is no longer needed, and it may be as long as the disk is
            // large.
            m_next = m_end;
            mark();
        } else if (available > limit) {
            m_isSkipping = true;
            m_line = std::exchange(m_next, m_end);
            return Line{{start, limit + 1}, true};
        }
        searched = m_end - m_next;
        if (!fill()) {
            if (searched == 0)
                return std::nullopt;
            start = m_buffer.data() + m_next;
            m_line = std::exchange(m_next, m_end);
            return Line{{start, searched}, false};
        }
    }
}

std::optional<std::string> LogFile::digestOfHead(size_t size) const {
    if (size == 0 || size > m_head.size())
        return std::nullopt;
    return digest(std::string_view(m_head).substr(0, size));
}

std::string LogFile::digestOfTail() const {
    const size_t size = std::min(m_mark, comparedSize);
    return digest({m_buffer.data() + m_mark - size, size});
}

bool LogFile::seek(int64_t position) {
    m_start = position;
    m_mark = m_next = m_end = 0;
    m_isAtEnd = m_isSkipping = false;
    m_error.clear();
    return gzseek(m_file.get(), static_cast<z_off_t>(position), SEEK_SET) == position;
}

bool LogFile::resume(int64_t position, const std::string &tail) {
    if (!m_isRegular)
        return false;
    const auto size = static_cast<size_t>(std::min<int64_t>(position, comparedSize));
    if (seek(position - static_cast<int64_t>(size))) {
        while (m_end < size && fill()) {
        }
        if (m_end >= size) {
            m_mark = m_next = size;
            if (digestOfTail() == tail)
                return true;
        }
    }
    gzclearerr(m_file.get());
    (void)seek(0);
    return false;
}

} // namespace tx::report
