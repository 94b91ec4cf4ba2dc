// SPDX-License-Identifier: MIT
// Comparison of build versions against libapt-pkg's of the same pairs.
#include "model/versioncomparison.h"

#include <apt-pkg/debversion.h>
#include <apt-pkg/init.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace {

long allocations = 0;

struct Pair {
    const char *a;
    const char *b;
};

constexpr Pair pairs[] = {{"1042", "1043"},   {"2.1.3", "2.1.3"},     {"3.0b4", "3.0b12"},
                          {"1.0.1", "1.0b1"}, {"10.15.7", "10.15.6"}, {"2024.11.3", "2024.11.12"},
                          {"5.0", "5.0rc1"},  {"1.2.3.4", "1.2.3.5"}};

void ours(benchmark::State &state) {
    std::vector<std::pair<QString, QString>> texts;
    for (const Pair &pair : pairs)
        texts.emplace_back(QString::fromLatin1(pair.a), QString::fromLatin1(pair.b));
    (void)tx::compareVersions(texts[0].first, texts[0].second);
    const long before = allocations;
    for (auto _ : state) {
        for (const auto &[a, b] : texts)
            benchmark::DoNotOptimize(tx::compareVersions(a, b));
    }
    state.counters["allocations"] = static_cast<double>(allocations - before);
}
BENCHMARK(ours);

void aptPkg(benchmark::State &state) {
    std::vector<std::pair<std::string, std::string>> texts;
    for (const Pair &pair : pairs)
        texts.emplace_back(pair.a, pair.b);
    for (auto _ : state) {
        for (const auto &[a, b] : texts)
            benchmark::DoNotOptimize(debVS.CmpVersion(a, b));
    }
}
BENCHMARK(aptPkg);

} // namespace

void *operator new(std::size_t size) {
    ++allocations;
    if (void *memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, std::size_t) noexcept { std::free(memory); }

BENCHMARK_MAIN();
