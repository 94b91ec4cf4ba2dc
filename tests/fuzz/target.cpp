// SPDX-License-Identifier: MIT
#include "tests/fuzz/target.h"

#include <TarvixUpdate/TXLog.h>

#include <cstdint>
#include <cstdlib>

void check(bool promise) {
    if (!promise)
        std::abort();
}

void lookAt(const TXUpdateFeed::TrackMap &tracks) {
    for (const TXUpdateTrackPtr &track : tracks) {
        for (const TXUpdatePtr &update : track->updates()) {
            check(!update->version().isNull());
            check(!update->fileURL().isEmpty() || !update->linkURL().isEmpty());
            (void)update->date();
            (void)update->releaseNotesURL();
            (void)update->isMajorVersion();
            check(update->isEqual(*update));
        }
        for (const TXUpdatePostPtr &post : track->posts()) {
            check(!post->postURL().isEmpty());
            (void)post->date();
            (void)post->endDate();
            (void)post->identifier();
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz(QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size)));
    return 0;
}
