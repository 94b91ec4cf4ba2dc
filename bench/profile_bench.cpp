// SPDX-License-Identifier: MIT
// One system profile.
#include "bench/benchhost.h"

#include <TarvixUpdate/TXUpdateSystemProfile.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>

namespace {

void profile(benchmark::State &state) {
    for (auto _ : state) {
        if (TXUpdateSystemProfile::systemProfile()->RAM() == 0)
            state.SkipWithError("the system did not answer");
    }
}
BENCHMARK(profile)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    becomeBenchHost();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
