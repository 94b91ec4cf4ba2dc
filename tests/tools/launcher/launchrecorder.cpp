// SPDX-License-Identifier: MIT
// An application that needs nothing but the C library: it records that it was started.

#include <cstdio>
#include <cstdlib>

int main(int, char **argv) {
    const char *path = std::getenv("TARVIX_NOTES_LAUNCH_LOG");
    std::FILE *log = path ? std::fopen(path, "ae") : nullptr;
    if (!log)
        return 1;
    std::fprintf(log, "recorder %s\n", argv[0]);
    return std::fclose(log) == 0 ? 0 : 1;
}
