// SPDX-License-Identifier: MIT
// tar -xC DIR, -zxC DIR, -jxC DIR, --zstd -xC DIR: unpacks the tar archive on standard input into DIR.
// Supports only the arguments that the framework documents. Unlike the system's tar, it leaves nothing of an
// archive that is damaged.

#include "archive/unpackercommand.h"

#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

int usage() {
    std::fputs(
        "usage: tar -xC DIR | -zxC DIR | -jxC DIR | --zstd -xC DIR\n"
        "Unpacks the archive on standard input, plain or compressed by gzip, bzip2 or zstd, into DIR. An\n"
        "archive that is damaged, would leave DIR or takes more than TXUPDATE_UNARCHIVER_LIMIT bytes leaves\n"
        "nothing.\n"
        "Exit status: 0 unpacked, 1 not, 64 misuse, 74 the archive cannot be read.\n",
        stderr);
    return 64;
}

/// The type of the archive, for TXUpdateUnpacker; null for wrong arguments.
const char *typeOf(int argc, char **argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (argc == 4 && option == "--zstd" && std::strcmp(argv[2], "-xC") == 0)
        return "tzst";
    if (argc != 3)
        return nullptr;
    return option == "-xC" ? "tar" : option == "-zxC" ? "tgz" : option == "-jxC" ? "tbz" : nullptr;
}

} // namespace

int main(int argc, char **argv) {
    const char *type = typeOf(argc, argv);
    return type ? tx::tools::becomeUnpacker("tar", type, argv[argc - 1], 1) : usage();
}
