// SPDX-License-Identifier: MIT
#include "archive/unpack.h"

#include "archive/extraction.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/types.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace tx::tools {

namespace {

/// A zip archive, which is read at any position.
struct ZipInput {
    int descriptor;
    bool unreadable = false;
    std::vector<char> buffer = std::vector<char>(1 << 18);
};

la_ssize_t readZip(archive *reader, void *data, const void **block) {
    ZipInput &input = *static_cast<ZipInput *>(data);
    ssize_t n = 0;
    while ((n = read(input.descriptor, input.buffer.data(), input.buffer.size())) < 0 && errno == EINTR) {
    }
    if (n < 0) {
        input.unreadable = true;
        archive_set_error(reader, errno, "%s", std::strerror(errno));
    }
    *block = input.buffer.data();
    return n;
}

la_int64_t seekZip(archive *reader, void *data, la_int64_t offset, int whence) {
    const la_int64_t position = lseek(static_cast<ZipInput *>(data)->descriptor, offset, whence);
    if (position >= 0)
        return position;
    archive_set_error(reader, errno, "%s", std::strerror(errno));
    return ARCHIVE_FATAL;
}

int unpackZip(const std::string &folder, const char *tool) {
    bool unreadable = false;
    ZipInput input{seekableInput(folder, unreadable)};
    if (input.descriptor < 0) {
        (void)fail(tool, unreadable ? "the archive cannot be read" : folder, std::strerror(errno));
        return unreadable ? archiveUnreadable : 1;
    }
    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_zip_seekable(reader.get());
    archive_read_set_callback_data(reader.get(), &input);
    archive_read_set_read_callback(reader.get(), readZip);
    archive_read_set_seek_callback(reader.get(), seekZip);
    const int status = archive_read_open1(reader.get()) == ARCHIVE_OK
                           ? extract(reader.get(), folder, tool)
                           : fail(tool, "not a zip archive", archive_error_string(reader.get()));
    return status != 0 && input.unreadable ? archiveUnreadable : status;
}

/// The tar stream in blocks, decompressed if it is gzip: zlib verifies the checksums, the archive library
/// does not.
class TarInput {
public:
    TarInput(ArchiveType type, const char *tool)
        : m_type(type)
        , m_tool(tool)
        , m_gzip(type == ArchiveType::TarGzip ? gzdopen(dup(STDIN_FILENO), "rb") : nullptr) {
        if (m_gzip)
            gzbuffer(m_gzip, 1U << 17);
    }
    ~TarInput() {
        if (m_gzip)
            gzclose(m_gzip);
    }
    TarInput(const TarInput &) = delete;
    TarInput &operator=(const TarInput &) = delete;

    /// The length of the next block; 0 at the end, -1 on failure.
    ssize_t next() {
        size_t filled = 0;
        while (filled < m_buffer.size()) {
            const ssize_t n = readSome(m_buffer.data() + filled, m_buffer.size() - filled);
            if (n < 0)
                return -1;
            if (n == 0)
                break;
            filled += static_cast<size_t>(n);
        }
        constexpr size_t blockSize = 512;
        if (filled >= blockSize)
            m_endsInZeros = std::all_of(m_buffer.data() + filled - blockSize, m_buffer.data() + filled,
                                        [](char c) { return c == 0; });
        return static_cast<ssize_t>(filled);
    }
    [[nodiscard]] const void *block() const { return m_buffer.data(); }
    [[nodiscard]] const std::string &failure() const { return m_failure; }
    [[nodiscard]] bool isUnreadable() const { return m_unreadable; }

    /// Reads the rest. False when the stream is damaged or lacks its end, a block of zeros.
    bool endsWell() {
        ssize_t n = 0;
        while ((n = next()) > 0) {
        }
        const bool endsItself = m_type == ArchiveType::TarBzip2 || m_type == ArchiveType::TarZstd;
        if (n == 0 && (m_endsInZeros || endsItself))
            return true;
        (void)fail(m_tool, "the archive is damaged", n < 0 ? m_failure.c_str() : "its end is missing");
        return false;
    }

private:
    ssize_t readSome(char *data, size_t size) {
        if (m_type != ArchiveType::TarGzip) {
            ssize_t n = 0;
            while ((n = read(STDIN_FILENO, data, size)) < 0 && errno == EINTR) {
            }
            if (n < 0) {
                m_unreadable = true;
                m_failure = std::strerror(errno);
            }
            return n;
        }
        if (!m_gzip) {
            m_failure = std::strerror(ENOMEM);
            return -1;
        }
        const int n = gzread(m_gzip, data, static_cast<unsigned>(size));
        int number = Z_OK;
        const char *why = gzerror(m_gzip, &number);
        if (n >= 0 && number == Z_OK && gzdirect(m_gzip) == 0)
            return n;
        m_unreadable = number == Z_ERRNO;
        m_failure = number == Z_OK ? "it is not compressed by gzip" : why;
        return -1;
    }

    ArchiveType m_type;
    const char *m_tool;
    gzFile m_gzip;
    std::vector<char> m_buffer = std::vector<char>(1 << 18);
    bool m_endsInZeros = false;
    bool m_unreadable = false;
    std::string m_failure;
};

la_ssize_t readTar(archive *reader, void *data, const void **block) {
    TarInput &input = *static_cast<TarInput *>(data);
    const ssize_t n = input.next();
    if (n < 0)
        archive_set_error(reader, EIO, "%s", input.failure().c_str());
    *block = input.block();
    return n;
}

int unpackTar(ArchiveType type, const std::string &folder, const char *tool) {
    // In the plain locale, in which this program starts, names come out byte for byte.
    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_gnutar(reader.get());
    if (type == ArchiveType::TarBzip2)
        archive_read_support_filter_bzip2(reader.get());
    if (type == ArchiveType::TarZstd)
        archive_read_support_filter_zstd(reader.get());
    TarInput input(type, tool);
    const int status = archive_read_open(reader.get(), &input, nullptr, readTar, nullptr) == ARCHIVE_OK
                           ? extract(reader.get(), folder, tool, [&input] { return input.endsWell(); })
                           : fail(tool, "not such an archive", archive_error_string(reader.get()));
    drainInput();
    return status != 0 && input.isUnreadable() ? archiveUnreadable : status;
}

} // namespace

int unpack(ArchiveType type, const std::string &folder, const char *tool) {
    return type == ArchiveType::Zip ? unpackZip(folder, tool) : unpackTar(type, folder, tool);
}

} // namespace tx::tools
