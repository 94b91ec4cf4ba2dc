// SPDX-License-Identifier: MIT
// An appcast of 50,000 items, half of them relevant, to filtered updates, against libxml2's document tree
// with XPath reading the same fields into plain strings.
#include "bench/feeddocument.h"
#include "bench/libxmlrecords.h"
#include "feed/appcastreader.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace {

constexpr int items = 50000;

void ours(benchmark::State &state) {
    const QByteArray document = appcastDocument(items);
    const tx::ReaderContext context{QString::number(100000 + items / 2), u"12.0.0"_s, {}, {}, false};
    for (auto _ : state) {
        const auto tracks = tx::readAppcast(document, context);
        if (tracks->value(u"release"_s)->updates().size() != items / 2)
            state.SkipWithError("half of the items were expected");
    }
}
BENCHMARK(ours)->Unit(benchmark::kMillisecond);

void libxmlTree(benchmark::State &state) {
    const QByteArray document = appcastDocument(items);
    for (auto _ : state) {
        if (itemsWithLibxml(document).size() != items)
            state.SkipWithError("all items were expected");
    }
}
BENCHMARK(libxmlTree)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
