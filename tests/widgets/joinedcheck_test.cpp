// SPDX-License-Identifier: MIT
#include "tests/widgets/standardcontrollertest.h"

using namespace Qt::StringLiterals;
using tx::test::Delegate;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::newer;
using tx::test::older;
using tx::test::post;
using tx::test::StandardController;
using tx::test::waitUntil;

namespace {

/// A check that somebody else has started runs, and its answer waits for the test.
class JoinedCheck : public StandardController {
protected:
    std::binary_semaphore gate{0};
    int hostCalls = 0;

    void runElsewhere(const HttpReply &reply, const std::function<void()> &start) {
        server.always([this, reply](const tx::test::HttpRequest &) {
            gate.acquire();
            gate.release();
            return reply;
        });
        start();
        ASSERT_TRUE(TXUpdater::sharedUpdater()->isChecking());
        // The answer comes while the panel is shown.
        inModalSession([this] {
            EXPECT_TRUE(shown<TXUpdateCheckingPanel>());
            EXPECT_EQ(controller->status() & 2U, 2U);
            gate.release();
        });
    }
    /// Who else checks: the timer, the host with a handler of its own, and this controller, quietly.
    QList<std::function<void()>> others() {
        return {[] { TXUpdater::sharedUpdater()->autocheckForUpdate(); },
                [this] {
                    TXUpdater::sharedUpdater()->checkForUpdate(
                        [this](const TXUpdateFeedPtr &, const TXError &) { ++hostCalls; });
                },
                [this] { controller->checkForUpdateAndShowChecking(false, true); },
                [this] { controller->checkForUpdateAndShowChecking(false, false); }};
    }
    void expectOneRequest(qsizetype before) {
        tx::test::drainEvents();
        EXPECT_EQ(server.requests().size(), before + 1) << "no second check";
        EXPECT_EQ(controller->status() & 2U, 0U);
        EXPECT_FALSE(shown<TXUpdateCheckingPanel>());
    }
};

TEST_F(JoinedCheck, VisibleCheckShowsTheUpdateThatARunningCheckFinds) {
    setUp();
    for (const auto &start : others()) {
        const qsizetype before = server.requests().size();
        runElsewhere(HttpReply::json("{\"release\":[" + newer + "]}"), start);
        controller->checkForUpdateAndShowChecking(true, true);
        ASSERT_TRUE(waitUntil([] { return shown<TXUpdatePanel>() != nullptr; }));
        shown<TXUpdatePanel>()->closeWithCode(0);
        expectOneRequest(before);
        ASSERT_TRUE(gate.try_acquire());
    }
    EXPECT_EQ(hostCalls, 1) << "the host's own handler as well";
    EXPECT_EQ(delegate.backgroundChecks, 1) << "and the delegate";
    EXPECT_TRUE(alerts.isEmpty());
}

TEST_F(JoinedCheck, VisibleCheckSaysUpToDateWhenARunningCheckFindsNothing) {
    setUp();
    for (const auto &start : others()) {
        const qsizetype before = server.requests().size();
        int said = 0;
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, &timer, [&] {
            auto *panel = shown<TXUpdateCheckingPanel>();
            if (!panel || !outlet(panel, "messageField")->isVisible())
                return;
            ++said;
            panel->cancel();
        });
        timer.start(5);
        runElsewhere(HttpReply::json("{\"release\":[]}"), start);
        controller->checkForUpdateAndShowChecking(true, true);
        EXPECT_EQ(said, 1);
        expectOneRequest(before);
        ASSERT_TRUE(gate.try_acquire());
    }
    EXPECT_TRUE(alerts.isEmpty()) << "said in the panel, once";
}

TEST_F(JoinedCheck, VisibleCheckTellsTheErrorOfARunningCheckOnce) {
    setUp();
    for (const auto &start : others()) {
        alerts.clear();
        const qsizetype before = server.requests().size();
        runElsewhere({.status = 500}, start);
        controller->checkForUpdateAndShowChecking(true, true);
        ASSERT_TRUE(waitUntil([this] { return !alerts.isEmpty(); }));
        expectOneRequest(before);
        EXPECT_EQ(alerts.size(), 1);
        ASSERT_TRUE(gate.try_acquire());
    }
}

TEST_F(JoinedCheck, CancelledPanelComesBackForTheSameCheck) {
    setUp();
    const qsizetype before = server.requests().size();
    server.always([this](const tx::test::HttpRequest &) {
        gate.acquire();
        return HttpReply{.status = 500};
    });
    inModalSession([] { shown<TXUpdateCheckingPanel>()->cancel(); });
    controller->checkForUpdateAndShowChecking(true, true);
    inModalSession([this] {
        EXPECT_TRUE(shown<TXUpdateCheckingPanel>());
        gate.release();
    });
    controller->checkForUpdateAndShowChecking(true, true);
    ASSERT_TRUE(waitUntil([this] { return !alerts.isEmpty(); }));
    expectOneRequest(before);
    EXPECT_EQ(alerts.size(), 1) << "one result is told once";
}

TEST_F(JoinedCheck, QuietCheckIsDroppedAndLeavesNoTrace) {
    setUp();
    server.always([this](const tx::test::HttpRequest &) {
        gate.acquire();
        return HttpReply::json("{\"release\":[]}");
    });
    TXUpdater::sharedUpdater()->autocheckForUpdate();
    controller->checkForUpdateAndShowChecking(false, true);
    EXPECT_EQ(controller->status() & 2U, 0U) << "nothing would ever clear it";
    gate.release();
    ASSERT_TRUE(waitUntil([this] { return delegate.backgroundChecks == 1; }));
    tx::test::drainEvents();
    EXPECT_EQ(server.requests().size(), 1);
    EXPECT_EQ(controller->status() & 2U, 0U);
}

} // namespace
