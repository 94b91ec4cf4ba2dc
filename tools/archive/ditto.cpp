// SPDX-License-Identifier: MIT
// ditto -x -k - DIR: unpacks the zip archive on standard input into DIR.

#include "archive/unpackercommand.h"

#include <cstdio>
#include <cstring>

namespace {

int usage() {
    std::fputs(
        "usage: ditto -x -k - DIR\n"
        "Unpacks the zip archive on standard input into DIR. An archive that is damaged, would leave DIR\n"
        "or takes more than TXUPDATE_UNARCHIVER_LIMIT bytes leaves nothing there.\n"
        "Exit status: 0 unpacked, 1 not, 64 misuse, 74 the archive cannot be read.\n",
        stderr);
    return 64;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 5 || std::strcmp(argv[1], "-x") != 0 || std::strcmp(argv[2], "-k") != 0 ||
        std::strcmp(argv[3], "-") != 0)
        return usage();
    return tx::tools::becomeUnpacker("ditto", "zip", argv[4], 0);
}
