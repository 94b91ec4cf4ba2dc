// SPDX-License-Identifier: MIT
// Prints how much memory reading a feed of 50,000 entries takes at its peak, beyond the document itself, as a
// multiple of the document's size.
#include "bench/feeddocument.h"
#include "bench/peakmemory.h"
#include "feed/jsonreader.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    constexpr int entries = 50000;
    const QByteArray document = feedDocument(entries);
    resetPeakMemory();
    const long before = peakMemoryKiB();
    const auto tracks = tx::readJsonFeed(
        document,
        {QString::number(100000 + entries / 2), u"12.0.0"_s, QDateTime::currentDateTimeUtc(), {}, false});
    const long taken = peakMemoryKiB() - before;
    std::printf("feed_memory: document %lld KiB, beyond it %ld KiB, ratio %.2f, updates %lld\n",
                static_cast<long long>(document.size() / 1024), taken,
                static_cast<double>(taken) * 1024 / static_cast<double>(document.size()),
                static_cast<long long>(tracks->value(u"release"_s)->updates().size()));
    return 0;
}
