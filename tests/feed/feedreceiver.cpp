// SPDX-License-Identifier: MIT
// feed_receiver STEP COUNT: receives COUNT signed feeds, each by STEP newer than the newest that it knows.
// Exit status: 1 when one that it has accepted is followed by an older one in the memory.
#include "model/feedmemory.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv) {
    if (argc != 3)
        return 64;
    const uint64_t step = std::strtoull(argv[1], nullptr, 10);
    uint64_t accepted = 0;
    for (int i = 0; i < std::atoi(argv[2]); ++i) {
        const uint64_t known = tx::storedSerial("release").value_or(0);
        if (known < accepted) {
            std::fprintf(stderr, "%llu was accepted, %llu is remembered\n",
                         static_cast<unsigned long long>(accepted), static_cast<unsigned long long>(known));
            return 1;
        }
        // Not fresh: the other one was faster.
        if (tx::rememberFeed({"org.example.Host", "release", known + step, {}}, 0).freshness ==
            tx::trust::Freshness::Fresh)
            accepted = known + step;
    }
    return 0;
}
