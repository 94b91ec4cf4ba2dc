// SPDX-License-Identifier: MIT
#include "base/queues.h"
#include "base/timers.h"
#include "tests/support/environment.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using tx::test::waitUntil;

namespace {

bool onMain() { return QThread::currentThread() == QCoreApplication::instance()->thread(); }

TEST(Queues, PostedWorkRunsLaterOnTheMainThread) {
    bool ran = false;
    bool main = false;
    std::thread([&] {
        tx::postToMain([&] {
            ran = true;
            main = onMain();
        });
    }).join();
    EXPECT_FALSE(ran);
    ASSERT_TRUE(waitUntil([&] { return ran; }));
    EXPECT_TRUE(main);
}

TEST(Queues, BackgroundWorkRunsElsewhereAndMayAskTheMainThread) {
    std::atomic<bool> elsewhere{false};
    bool asked = false;
    std::atomic<bool> done{false};
    tx::runInBackground([&] {
        elsewhere = !onMain();
        done = tx::runOnMainAndWait([&] { asked = onMain(); });
    });
    ASSERT_TRUE(waitUntil([&] { return done.load(); }));
    EXPECT_TRUE(elsewhere);
    EXPECT_TRUE(asked);
    bool direct = false;
    EXPECT_TRUE(tx::runOnMainAndWait([&] { direct = true; })) << "from the main thread it runs at once";
    EXPECT_TRUE(direct);
}

TEST(Queues, BackgroundJobsDoNotWaitForEachOther) {
    // More of them than there are processors, each waiting for the last.
    const int count = 4 * QThread::idealThreadCount() + 4;
    std::atomic<int> begun{0};
    std::atomic<bool> last{false};
    std::atomic<int> ended{0};
    for (int i = 0; i < count; ++i) {
        tx::runInBackground([&] {
            ++begun;
            last.wait(false);
            ++ended;
        });
    }
    EXPECT_FALSE(tx::waitForBackground(1ms));
    EXPECT_TRUE(waitUntil([&] { return begun == count; })) << begun;
    last = true;
    last.notify_all();
    EXPECT_TRUE(tx::waitForBackground(20s));
    EXPECT_EQ(ended, count);
}

TEST(Queues, BackgroundWorkLeavesTheHostsThreadPoolAlone) {
    std::atomic<bool> ran{false};
    int active = -1;
    tx::runInBackground([&] {
        active = QThreadPool::globalInstance()->activeThreadCount();
        ran = !QThreadPool::globalInstance()->contains(QThread::currentThread());
    });
    EXPECT_TRUE(tx::waitForBackground(20s));
    EXPECT_TRUE(ran);
    EXPECT_EQ(active, 0);
}

TEST(Timers, LongIntervalsAreCountedInSteps) {
    int fired = 0;
    tx::LongTimer timer([&] { ++fired; }, 5ms);
    QElapsedTimer clock;
    clock.start();
    timer.start(23ms);
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(waitUntil([&] { return fired == 1; }));
    EXPECT_GE(clock.elapsed(), 20) << "five steps, not one";
    ASSERT_TRUE(waitUntil([&] { return fired == 3; })) << "it repeats";
    timer.stop();
    EXPECT_FALSE(timer.isActive());
}

TEST(Timers, IntervalBeyondThePlatformsLimitDoesNotFireAtOnce) {
    int fired = 0;
    tx::LongTimer timer([&] { ++fired; });
    timer.start(std::chrono::hours(24 * 60));
    EXPECT_EQ(timer.interval(), std::chrono::hours(24 * 60));
    EXPECT_FALSE(waitUntil([&] { return fired > 0; }, 100));
    EXPECT_TRUE(timer.isActive());
}

} // namespace
