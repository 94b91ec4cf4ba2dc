// SPDX-License-Identifier: MIT
// ditto -x -k - DIR: unpacks a zip archive from standard input into DIR, with the modes and links that the
// archive keeps in its directory at the end. That end comes last through a pipe, so the archive is spooled.

#include "archive/extraction.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int usage() {
    std::fputs(
        "usage: ditto -x -k - DIR\n"
        "Unpacks the zip archive on standard input into DIR. An archive that is damaged, would leave DIR\n"
        "or takes more than TXUPDATE_UNARCHIVER_LIMIT bytes leaves nothing there.\n"
        "Exit status: 0 unpacked, 1 not, 64 misuse.\n",
        stderr);
    return 64;
}

} // namespace

int main(int argc, char **argv) {
    using namespace tx::tools;
    if (argc != 5 || std::strcmp(argv[1], "-x") != 0 || std::strcmp(argv[2], "-k") != 0 ||
        std::strcmp(argv[3], "-") != 0)
        return usage();
    // Names in zip archives are UTF-8, whatever the caller's locale is. The library normalizes them.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::unique_ptr<char, decltype(&std::free)> folder(realpath(argv[4], nullptr), &std::free);
    const int input = folder ? seekableInput(folder.get()) : -1;
    if (input < 0)
        return fail("ditto", argv[4], std::strerror(errno));
    const Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_zip_seekable(reader.get());
    if (archive_read_open_fd(reader.get(), input, 1 << 18) != ARCHIVE_OK)
        return fail("ditto", "not a zip archive", archive_error_string(reader.get()));
    return extract(reader.get(), folder.get(), "ditto");
}
