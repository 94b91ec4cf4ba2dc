// SPDX-License-Identifier: MIT
// A whole check over loopback in one process against a bare GET of the 10-entry feed.
// Environment: TARVIX_BENCH_FEED_10 and TARVIX_BENCH_FEED_1000, the addresses.
#include "bench/benchhost.h"

#include <TarvixUpdate/TXUpdater.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace {

constexpr int checks = 500;

/// One check or request a repetition, and all of them in a random order: the median is that of single checks,
/// and what else the machine does meets both sides alike.
void paired(benchmark::internal::Benchmark *benchmark) {
    benchmark->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(1)->Repetitions(checks);
}

void check(benchmark::State &state, const char *variable) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(qEnvironmentVariable(variable)));
    for (auto _ : state) {
        QEventLoop loop;
        bool failed = false;
        QElapsedTimer timer;
        timer.start();
        qint64 taken = 0;
        updater->checkForUpdate([&](const TXUpdateFeedPtr &feed, const TXError &) {
            taken = timer.nsecsElapsed(); // to the answer: storing the date comes after it
            failed = !feed;
            loop.quit();
        });
        loop.exec();
        state.SetIterationTime(static_cast<double>(taken) / 1e9);
        if (failed)
            state.SkipWithError("the check failed");
        while (updater->isChecking())
            QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    }
}
BENCHMARK_CAPTURE(check, entries_10, "TARVIX_BENCH_FEED_10")->Apply(paired);
BENCHMARK_CAPTURE(check, entries_1000, "TARVIX_BENCH_FEED_1000")->Apply(paired);

void bareGet(benchmark::State &state, const char *variable) {
    static QNetworkAccessManager manager;
    const QNetworkRequest request(QUrl(qEnvironmentVariable(variable)));
    for (auto _ : state) {
        QEventLoop loop;
        QElapsedTimer timer;
        timer.start();
        QNetworkReply *reply = manager.get(request);
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        benchmark::DoNotOptimize(reply->readAll());
        state.SetIterationTime(static_cast<double>(timer.nsecsElapsed()) / 1e9);
        delete reply;
    }
}
BENCHMARK_CAPTURE(bareGet, entries_10, "TARVIX_BENCH_FEED_10")->Apply(paired);
// For comparison: what the larger document costs to fetch alone.
BENCHMARK_CAPTURE(bareGet, entries_1000, "TARVIX_BENCH_FEED_1000")->Apply(paired);

} // namespace

int main(int argc, char **argv) {
    const QCoreApplication application(argc, argv);
    becomeBenchHost();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
