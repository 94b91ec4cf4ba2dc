// SPDX-License-Identifier: MIT
// Any bytes as a JSON feed: read for a host, and as publishers see it; every update is made and looked at.
#include "feed/jsonreader.h"
#include "tests/fuzz/target.h"

using namespace Qt::StringLiterals;

void fuzz(const QByteArray &input) {
    for (const bool keepsIrrelevant : {false, true}) {
        qsizetype skipped = 0;
        tx::ReaderContext context{u"10"_s, u"12.0.0"_s, QDateTime(QDate(2026, 1, 1), QTime(0, 0), Qt::UTC),
                                  [&skipped](const tx::SkippedEntry &) { ++skipped; }, keepsIrrelevant};
        const auto tracks = tx::readJsonFeed(input, context);
        if (tracks)
            lookAt(*tracks);
        else
            check(!tracks.error().localizedFailureReason().isEmpty());
    }
}
