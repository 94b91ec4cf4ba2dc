// SPDX-License-Identifier: MIT
#include "base/limitedwork.h"
#include "tests/support/environment.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <semaphore>
#include <thread>

using namespace std::chrono_literals;

namespace {

/// Work that hangs until the test lets it continue. The thread may outlive the test.
struct Hanging {
    std::binary_semaphore mayEnd{0};
    std::atomic<int> runs{0};
};

class LimitedWork : public tx::test::FrameworkTest {
protected:
    tx::LimitedWork limited;
    const std::shared_ptr<Hanging> hanging = std::make_shared<Hanging>();

    bool hang(std::chrono::milliseconds limit) {
        return limited.run(limit, [state = hanging] {
            ++state->runs;
            state->mayEnd.acquire();
        });
    }
};

TEST_F(LimitedWork, RunsOnAThreadOfItsOwnAndDropsItsCaptures) {
    const auto held = std::make_shared<std::thread::id>();
    EXPECT_TRUE(limited.run(1min, [held] { *held = std::this_thread::get_id(); }));
    EXPECT_NE(*held, std::thread::id());
    EXPECT_NE(*held, std::this_thread::get_id());
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(LimitedWork, IsAbandonedAfterTheLimit) {
    EXPECT_FALSE(hang(10ms));
    ASSERT_TRUE(tx::test::waitUntil([this] { return hanging->runs == 1; }));
    EXPECT_FALSE(hang(1min)) << "and while it hangs, nothing else is run";
    EXPECT_EQ(hanging->runs, 1);
    hanging->mayEnd.release();
    EXPECT_TRUE(tx::test::waitUntil([this] { return limited.run(1min, [] {}); }));
    EXPECT_TRUE(tx::test::waitUntil([this] { return hanging.use_count() == 1; }));
}

TEST_F(LimitedWork, WaitsForACallOfAnotherThread) {
    std::atomic<bool> hasEnded{false};
    std::thread other([&] { hasEnded = hang(1min); });
    EXPECT_TRUE(tx::test::waitUntil([this] { return hanging->runs == 1; }));
    EXPECT_FALSE(limited.run(10ms, [] {})) << "within its own limit";
    std::thread later([this] {
        std::this_thread::yield();
        hanging->mayEnd.release();
    });
    EXPECT_TRUE(limited.run(1min, [] {}));
    other.join();
    later.join();
    EXPECT_TRUE(hasEnded);
}

TEST_F(LimitedWork, MayOutliveItsOwner) {
    auto owner = std::make_unique<tx::LimitedWork>();
    EXPECT_FALSE(owner->run(10ms, [state = hanging] { state->mayEnd.acquire(); }));
    owner.reset();
    hanging->mayEnd.release();
    EXPECT_TRUE(tx::test::waitUntil([this] { return hanging.use_count() == 1; }));
}

} // namespace
