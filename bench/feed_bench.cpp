// SPDX-License-Identifier: MIT
// A JSON feed of 50,000 entries, half of them relevant, to filtered tracks with dates and addresses, against
// simdjson's DOM reading the same members into plain strings.
#include "bench/feeddocument.h"
#include "feed/jsonreader.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <simdjson.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int entries = 50000;

void ours(benchmark::State &state) {
    const QByteArray document = feedDocument(entries);
    const tx::ReaderContext context{
        QString::number(100000 + entries / 2), u"12.0.0"_s, QDateTime::currentDateTimeUtc(), {}, false};
    for (auto _ : state) {
        const auto tracks = tx::readJsonFeed(document, context);
        qint64 sum = 0;
        for (const TXUpdatePtr &update : tracks->value(u"release"_s)->updates())
            sum += update->date().toSecsSinceEpoch() + update->fileURL().port(1);
        benchmark::DoNotOptimize(sum);
        if (tracks->value(u"release"_s)->updates().size() != entries / 2)
            state.SkipWithError("half of the entries were expected");
    }
}
BENCHMARK(ours)->Unit(benchmark::kMillisecond);

struct Plain {
    std::string title, description, date, build, version, notes, download, system, launch;
};

void simdjsonDom(benchmark::State &state) {
    const QByteArray document = feedDocument(entries);
    for (auto _ : state) {
        simdjson::dom::parser parser;
        std::vector<Plain> all;
        simdjson::dom::array list =
            parser.parse(document.constData(), size_t(document.size()))["release"].get_array();
        for (simdjson::dom::object entry : list) {
            const auto text = [&](std::string_view name) {
                return std::string(entry[name].get_string().value());
            };
            all.push_back({text("title"), text("description"), text("date"), text("build"), text("version"),
                           text("releaseNotesURL"), text("downloadURL"), text("minSystemVersion"),
                           text("launch")});
        }
        benchmark::DoNotOptimize(all.data());
    }
}
BENCHMARK(simdjsonDom)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
