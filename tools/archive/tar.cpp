// SPDX-License-Identifier: MIT
// tar -xC DIR, -zxC DIR, -jxC DIR, --zstd -xC DIR: unpacks a tar archive from standard input into DIR.
// Supports only the arguments that the framework uses. Removes everything that it has unpacked if the archive
// is damaged, which the system's tar does not do.

#include "archive/extraction.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace {

int usage() {
    std::fputs(
        "usage: tar -xC DIR | -zxC DIR | -jxC DIR | --zstd -xC DIR\n"
        "Unpacks the archive on standard input, plain or compressed by gzip, bzip2 or zstd, into DIR. An\n"
        "archive that is damaged, would leave DIR or takes more than TXUPDATE_UNARCHIVER_LIMIT bytes leaves\n"
        "nothing.\n"
        "Exit status: 0 unpacked, 1 not, 64 misuse.\n",
        stderr);
    return 64;
}

/// The tar stream in blocks, decompressed if it is gzip: zlib verifies the checksums, the archive library
/// does not.
class Input {
public:
    enum Kind { Plain, Gzip, Bzip2, Zstd };
    explicit Input(Kind kind)
        : m_kind(kind)
        , m_gzip(kind == Gzip ? gzdopen(dup(STDIN_FILENO), "rb") : nullptr) {
        if (m_gzip)
            gzbuffer(m_gzip, 1U << 17);
    }
    ~Input() {
        if (m_gzip)
            gzclose(m_gzip);
    }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

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

    /// Reads the rest. False when the stream is damaged or lacks its end, a block of zeros.
    bool endsWell() {
        ssize_t n = 0;
        while ((n = next()) > 0) {
        }
        if (n == 0 && (m_endsInZeros || m_kind == Bzip2 || m_kind == Zstd))
            return true;
        (void)tx::tools::fail("tar", "the archive is damaged",
                              n < 0 ? m_failure.c_str() : "its end is missing");
        return false;
    }

private:
    ssize_t readSome(char *data, size_t size) {
        if (!m_gzip) {
            ssize_t n = 0;
            while ((n = read(STDIN_FILENO, data, size)) < 0 && errno == EINTR) {
            }
            if (n < 0)
                m_failure = std::strerror(errno);
            return n;
        }
        const int n = gzread(m_gzip, data, static_cast<unsigned>(size));
        int number = Z_OK;
        const char *why = gzerror(m_gzip, &number);
        if (n >= 0 && number == Z_OK && gzdirect(m_gzip) == 0)
            return n;
        m_failure = number == Z_OK ? "it is not compressed by gzip" : why;
        return -1;
    }

    Kind m_kind;
    gzFile m_gzip;
    std::vector<char> m_buffer = std::vector<char>(1 << 18);
    bool m_endsInZeros = false;
    std::string m_failure;
};

la_ssize_t readInput(archive *reader, void *data, const void **block) {
    Input &input = *static_cast<Input *>(data);
    const ssize_t n = input.next();
    if (n < 0)
        archive_set_error(reader, EIO, "%s", input.failure().c_str());
    *block = input.block();
    return n;
}

} // namespace

int main(int argc, char **argv) {
    using namespace tx::tools;
    std::string options = argc == 3 && std::strcmp(argv[1], "--zstd") != 0 ? argv[1] : "";
    if (argc == 4 && std::strcmp(argv[1], "--zstd") == 0 && std::strcmp(argv[2], "-xC") == 0)
        options = argv[1];
    if (options != "-xC" && options != "-zxC" && options != "-jxC" && options != "--zstd")
        return usage();
    const char *place = argv[argc - 1];
    const std::unique_ptr<char, decltype(&std::free)> folder(realpath(place, nullptr), &std::free);
    if (!folder)
        return fail("tar", place, std::strerror(errno));
    // In the plain locale, in which this program starts, names come out byte for byte.
    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_gnutar(reader.get());
    if (options == "-jxC")
        archive_read_support_filter_bzip2(reader.get());
    if (options == "--zstd")
        archive_read_support_filter_zstd(reader.get());
    Input input(options == "-zxC"     ? Input::Gzip
                : options == "-jxC"   ? Input::Bzip2
                : options == "--zstd" ? Input::Zstd
                                      : Input::Plain);
    int status = 1;
    if (archive_read_open(reader.get(), &input, nullptr, readInput, nullptr) == ARCHIVE_OK)
        status = extract(reader.get(), folder.get(), "tar", [&input] { return input.endsWell(); });
    else
        (void)fail("tar", "not such an archive", archive_error_string(reader.get()));
    drainInput();
    return status;
}
