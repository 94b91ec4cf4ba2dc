// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstring>

/// The largest resident size of this process so far.
inline long peakMemoryKiB() {
    long result = 0;
    char line[256];
    std::FILE *status = std::fopen("/proc/self/status", "r");
    while (status && std::fgets(line, sizeof line, status)) {
        if (std::strncmp(line, "VmHWM:", 6) == 0)
            std::sscanf(line + 6, "%ld", &result);
    }
    if (status)
        std::fclose(status);
    return result;
}
