// SPDX-License-Identifier: MIT
// ditto -x -k - DIR: unpacks a zip archive from standard input into DIR, with the modes and links that the
// archive keeps in its directory at the end. That end comes last through a pipe, so the archive is spooled.

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;

int usage() {
    std::fputs(
        "usage: ditto -x -k - DIR\n"
        "Unpacks the zip archive on standard input into DIR. Entries that would leave DIR are refused.\n"
        "Exit status: 0 all unpacked, 1 something was not, 64 misuse.\n",
        stderr);
    return 64;
}

int fail(const char *what, const char *why) {
    std::fprintf(stderr, "ditto: %s: %s\n", what, why);
    return 1;
}

/// A descriptor that can be read from any position: standard input itself when it is a file, else a nameless
/// copy of it in the destination, where there must be room for the content anyway.
int seekableInput(const std::string &directory) {
    struct stat info {};
    if (fstat(STDIN_FILENO, &info) == 0 && S_ISREG(info.st_mode) && lseek(STDIN_FILENO, 0, SEEK_CUR) == 0)
        return STDIN_FILENO;
    int spool = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (spool < 0) { // a file system without nameless files
        std::string name = directory + "/.ditto-XXXXXX";
        spool = mkostemp(name.data(), O_CLOEXEC);
        if (spool >= 0)
            unlink(name.c_str());
    }
    if (spool < 0)
        return -1;
    std::vector<char> buffer(1 << 18);
    for (ssize_t n = 0; (n = read(STDIN_FILENO, buffer.data(), buffer.size())) != 0;) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        for (ssize_t written = 0; written < n;) {
            const ssize_t w = write(spool, buffer.data() + written, static_cast<size_t>(n - written));
            if (w <= 0)
                return -1;
            written += w;
        }
    }
    return lseek(spool, 0, SEEK_SET) == 0 ? spool : -1;
}

bool copyContent(archive *from, archive *to) {
    const void *block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    for (;;) {
        const int result = archive_read_data_block(from, &block, &size, &offset);
        if (result == ARCHIVE_EOF)
            return true;
        if (result < ARCHIVE_WARN) {
            fail("the archive is damaged", archive_error_string(from));
            return false;
        }
        if (archive_write_data_block(to, block, size, offset) < ARCHIVE_WARN) {
            fail("cannot write", archive_error_string(to));
            return false;
        }
    }
}

/// True when `name` stays below the folder that it is relative to.
bool staysInside(const std::string &name) {
    if (name.empty() || name.front() == '/')
        return false;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (name.compare(start, end - start, "..") == 0)
            return false;
        start = end + 1;
    }
    return true;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 5 || std::strcmp(argv[1], "-x") != 0 || std::strcmp(argv[2], "-k") != 0 ||
        std::strcmp(argv[3], "-") != 0)
        return usage();
    // Names in archives are UTF-8, whatever the caller's language is.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::string directory = argv[4];
    const int input = chdir(directory.c_str()) == 0 ? seekableInput(".") : -1;
    if (input < 0)
        return fail(directory.c_str(), std::strerror(errno));

    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_zip_seekable(reader.get());
    if (archive_read_open_fd(reader.get(), input, 1 << 18) != ARCHIVE_OK)
        return fail("not a zip archive", archive_error_string(reader.get()));
    const Writer writer(archive_write_disk_new(), &archive_write_free);
    archive_write_disk_set_options(writer.get(),
                                   ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_UNLINK |
                                       ARCHIVE_EXTRACT_SECURE_SYMLINKS | ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                       ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS);
    int status = 0;
    archive_entry *entry = nullptr;
    for (;;) {
        const int result = archive_read_next_header(reader.get(), &entry);
        if (result == ARCHIVE_EOF)
            break;
        if (result < ARCHIVE_WARN)
            return fail("the archive is damaged", archive_error_string(reader.get()));
        const char *stored = archive_entry_pathname(entry);
        const std::string name = stored ? stored : "";
        const mode_t type = archive_entry_filetype(entry);
        if (!staysInside(name) || (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK) ||
            archive_entry_hardlink(entry)) {
            status = fail(name.c_str(), "refused");
            continue;
        }
        // What the desktop that packed it keeps of its own file system is of no use here.
        if (name.rfind("__MACOSX/", 0) == 0)
            continue;
        // Zip archives of plain tools carry no modes at all for some entries.
        if ((archive_entry_mode(entry) & 0777) == 0)
            archive_entry_set_perm(entry, type == AE_IFDIR ? 0755 : 0644);
        if (archive_write_header(writer.get(), entry) < ARCHIVE_WARN) {
            status = fail(name.c_str(), archive_error_string(writer.get()));
            continue;
        }
        if ((archive_entry_size_is_set(entry) == 0 || archive_entry_size(entry) > 0) &&
            !copyContent(reader.get(), writer.get()))
            return 1;
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN)
            status = fail(name.c_str(), archive_error_string(writer.get()));
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        status = fail(directory.c_str(), archive_error_string(writer.get()));
    return status;
}
