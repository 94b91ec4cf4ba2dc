// SPDX-License-Identifier: MIT
// appcast_memory ours|libxml: prints how much memory, in KiB, reading an appcast of 50,000 items takes at its
// peak beyond the document itself, updates included.
#include "bench/feeddocument.h"
#include "bench/libxmlrecords.h"
#include "bench/peakmemory.h"
#include "feed/appcastreader.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    constexpr int items = 50000;
    const QByteArray document = appcastDocument(items);
    resetPeakMemory();
    const long before = peakMemoryKiB();
    qsizetype count = 0;
    if (application.arguments().value(1) == u"ours") {
        const auto tracks =
            tx::readAppcast(document, {QString::number(100000 + items / 2), u"12.0.0"_s, {}, {}, false});
        count = tracks->value(u"release"_s)->updates().size();
    } else {
        count = static_cast<qsizetype>(itemsWithLibxml(document).size());
    }
    std::printf("%ld of %lld for %lld records\n", peakMemoryKiB() - before,
                static_cast<long long>(document.size() / 1024), static_cast<long long>(count));
    return 0;
}
