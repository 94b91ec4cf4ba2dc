// SPDX-License-Identifier: MIT
// Any bytes as an appcast: read for a host, and as publishers see it; every update is made and looked at.
#include "feed/appcastreader.h"
#include "tests/fuzz/target.h"

using namespace Qt::StringLiterals;

void fuzz(const QByteArray &input) {
    for (const bool keepsIrrelevant : {false, true}) {
        qsizetype skipped = 0;
        tx::ReaderContext context{
            u"10"_s, u"12.0.0"_s, {}, [&skipped](const tx::SkippedEntry &) { ++skipped; }, keepsIrrelevant};
        const auto tracks = tx::readAppcast(input, context);
        if (tracks) {
            lookAt(*tracks);
            check(tracks->size() == 1);
        } else {
            check(!tracks.error().localizedFailureReason().isEmpty());
        }
    }
}
