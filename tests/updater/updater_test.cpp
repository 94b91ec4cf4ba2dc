// SPDX-License-Identifier: MIT
#include "net/networkthread.h"
#include "os/userdefaults.h"
#include "tests/support/builders.h"
#include "tests/support/environment.h"
#include "tests/support/feedserver.h"
#include "tests/updater/updatertest.h"
#include "updater/updater_p.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QThread>

#include <atomic>
#include <memory>
#include <thread>

using namespace Qt::StringLiterals;
using tx::test::FeedServer;
using tx::test::HttpReply;
using tx::test::waitUntil;

namespace {

using Updater = tx::test::UpdaterTest;
using Outcome = tx::test::CheckOutcome;
using tx::test::oneUpdate;

static_assert(!std::is_default_constructible_v<TXUpdater>, "there is only the shared updater");

TEST_F(Updater, IsOneObjectOnTheMainThread) {
    EXPECT_EQ(TXUpdater::sharedUpdater(), updater);
    EXPECT_EQ(updater->thread(), QCoreApplication::instance()->thread());
}

TEST_F(Updater, CheckDeliversTheFeedOnTheMainThreadAndStoresTheDate) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json(oneUpdate));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    setNow(QDateTime(QDate(2026, 5, 1), QTime(8, 0), Qt::UTC));
    check();
    ASSERT_TRUE(outcome.feed) << outcome.error.toString().toStdString();
    EXPECT_TRUE(outcome.error.isNull());
    EXPECT_TRUE(outcome.onMain);
    ASSERT_TRUE(outcome.feed->recommendedUpdate());
    EXPECT_EQ(outcome.feed->recommendedUpdate()->version(), u"1043"_s);
    EXPECT_EQ(outcome.feed->recommendedUpdate()->thread(), QCoreApplication::instance()->thread());
    EXPECT_EQ(updater->lastUpdateCheckDate(), QDateTime(QDate(2026, 5, 1), QTime(8, 0), Qt::UTC));
}

/// Passes loads on and remembers the thread that asks for them.
class ThreadRecorder final : public tx::UrlLoader {
public:
    std::atomic<QThread *> thread{nullptr};

    void load(const tx::UrlRequest &request, tx::UrlLoadHandler handler) override {
        thread = QThread::currentThread();
        tx::nativeUrlLoader().load(request, std::move(handler));
    }
    std::unique_ptr<tx::UrlDownload> startDownload(const tx::UrlRequest &request,
                                                   tx::UrlDownloadDelegate &delegate) override {
        return tx::nativeUrlLoader().startDownload(request, delegate);
    }
    void stop() override { tx::nativeUrlLoader().stop(); }
};

TEST_F(Updater, CheckWithoutAProfileUsesOnlyTheNetworkThread) {
    struct Parameters final : TXUpdaterDelegate {
        QThread *thread = nullptr;
        QVariantMap feedParametersForUpdater(TXUpdater *) override {
            thread = QThread::currentThread();
            return {{u"channel"_s, u"beta"_s}};
        }
    } delegate;
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json(oneUpdate); });
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    updater->setSendsSystemProfile(true);
    setNow(QDateTime(QDate(2026, 5, 1), QTime(8, 0), Qt::UTC));
    ASSERT_FALSE(tx::UserDefaults::standard().setValue(TXUpdatePrefLastSystemProfileDateKey,
                                                       tx::services().now().addDays(-1)));
    QThread *network = nullptr;
    tx::NetworkThread::instance().post([](QNetworkAccessManager &) {}); // starts the thread, if need be
    tx::NetworkThread::instance().runAndWait([&network] { network = QThread::currentThread(); });
    ThreadRecorder recorder;
    tx::services().urlLoader = &recorder;
    for (TXUpdaterDelegate *asked :
         {static_cast<TXUpdaterDelegate *>(nullptr), static_cast<TXUpdaterDelegate *>(&delegate)}) {
        updater->setDelegate(asked);
        recorder.thread = nullptr;
        check();
        EXPECT_TRUE(outcome.feed) << outcome.error.toString().toStdString();
        EXPECT_TRUE(outcome.onMain);
        EXPECT_EQ(recorder.thread, network);
        EXPECT_EQ(server.requests().last().method, QByteArray(asked ? "POST" : "GET"));
    }
    EXPECT_EQ(delegate.thread, QCoreApplication::instance()->thread());
    updater->setDelegate(nullptr);
}

TEST_F(Updater, DelegateIsAskedAfterTheCallThatStartsTheCheck) {
    struct Counting final : TXUpdaterDelegate {
        int asked = 0;
        QVariantMap feedParametersForUpdater(TXUpdater *) override {
            ++asked;
            return {};
        }
    } delegate;
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json(oneUpdate));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    updater->setDelegate(&delegate);
    updater->checkForUpdate([this](const TXUpdateFeedPtr &f, const TXError &e) { outcome(f, e); });
    EXPECT_EQ(delegate.asked, 0);
    ASSERT_TRUE(waitUntil([this] { return outcome.calls > 0; }));
    EXPECT_EQ(delegate.asked, 1);
    updater->setDelegate(nullptr);
}

TEST_F(Updater, FailedCheckLeavesTheDateAlone) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply{.status = 500});
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    check();
    EXPECT_FALSE(outcome.feed);
    EXPECT_TRUE(outcome.error);
    EXPECT_FALSE(updater->lastUpdateCheckDate().isValid());
}

TEST_F(Updater, CheckWithoutAFeedAddressEndsWithALoadingError) {
    check();
    EXPECT_EQ(outcome.error.localizedDescription(),
              u"Could not check for updates because of a network error."_s);
    EXPECT_EQ(outcome.error.underlyingError().domain(), u"NSURLErrorDomain"_s);
}

TEST_F(Updater, SecondCheckIsDroppedWhileOneRuns) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json("{}"));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    Outcome dropped;
    updater->checkForUpdate([this](const TXUpdateFeedPtr &f, const TXError &e) { outcome(f, e); });
    EXPECT_TRUE(updater->isChecking());
    updater->checkForUpdate([&dropped](const TXUpdateFeedPtr &f, const TXError &e) { dropped(f, e); });
    ASSERT_TRUE(waitUntil([this] { return outcome.calls > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(dropped.calls, 0);
    EXPECT_EQ(outcome.calls, 1);
}

TEST_F(Updater, NewCheckMayStartFromWithinTheReport) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json("{}"));
    server.expect("GET", "/feed.json", HttpReply::json("{}"));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    Outcome second;
    bool wasChecking = true;
    updater->checkForUpdate([&](const TXUpdateFeedPtr &, const TXError &) {
        wasChecking = updater->isChecking();
        updater->checkForUpdate([&second](const TXUpdateFeedPtr &f, const TXError &e) { second(f, e); });
    });
    ASSERT_TRUE(waitUntil([&] { return second.calls > 0; }));
    EXPECT_FALSE(wasChecking);
}

TEST_F(Updater, EveryHandlerMayStartTheNextCheck) {
    // What a timer or another thread does meanwhile must not decide it.
    constexpr int rounds = 200;
    int ended = 0;
    const TXUpdater::CompletionHandler next = [&](const TXUpdateFeedPtr &, const TXError &) {
        if (++ended < rounds)
            updater->checkForUpdate(next);
    };
    updater->checkForUpdate(next);
    EXPECT_TRUE(waitUntil([&] { return ended == rounds; }, 60000)) << ended;
}

TEST_F(Updater, HandlerIsCalledBeforeTheDateIsStored) {
    FeedServer server;
    server.expect("GET", "/feed.json", HttpReply::json("{}"));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    const QDateTime before(QDate(2026, 4, 1), QTime(8, 0), Qt::UTC);
    const QDateTime now(QDate(2026, 5, 1), QTime(8, 0), Qt::UTC);
    ASSERT_TRUE(tx::UserDefaults::standard().setValue(TXUpdatePrefLastUpdateCheckDateKey, before).isNull());
    setNow(now);
    QDateTime seen;
    updater->checkForUpdate(
        [&](const TXUpdateFeedPtr &, const TXError &) { seen = updater->lastUpdateCheckDate(); });
    ASSERT_TRUE(waitUntil([&] { return seen.isValid(); }));
    tx::test::drainEvents();
    EXPECT_EQ(seen, before) << "the handler may ask when the last check was";
    EXPECT_EQ(updater->lastUpdateCheckDate(), now);
}

TEST(UpdaterDeathTest, ResultWithoutFeedAndErrorEndsTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto feed = std::make_shared<TXUpdateFeed>(QUrl(), QVariantMap(), nullptr, nullptr);
    const TXError error(u"d"_s, 1, u"text"_s);
    EXPECT_EQ(tx::reportedFeed(feed, {}), feed);
    EXPECT_EQ(tx::reportedFeed(feed, error), nullptr) << "an error comes alone";
    EXPECT_EQ(tx::reportedFeed(nullptr, error), nullptr);
    EXPECT_DEATH((void)tx::reportedFeed(nullptr, {}), "feed \\|\\| error");
}

class RecordingDelegate : public TXUpdaterDelegate {
public:
    QVariantMap feedParametersForUpdater(TXUpdater *) override {
        ++asked;
        askedOnMain = QThread::currentThread() == QCoreApplication::instance()->thread();
        return parameters;
    }
    void updaterDidCheckForUpdate(TXUpdater *, const TXUpdateFeedPtr &feed, const TXError &error) override {
        outcome(feed, error);
    }
    QVariantMap parameters;
    int asked = 0;
    bool askedOnMain = false;
    Outcome outcome;
};

TEST_F(Updater, DelegateGivesParametersAndIsToldOfChecksWithoutHandler) {
    FeedServer server;
    server.expect("POST", "/feed.json", HttpReply::json("{}"));
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    RecordingDelegate delegate;
    delegate.parameters = {{u"source"_s, u"menu"_s}};
    updater->setDelegate(&delegate);
    updater->autocheckForUpdate();
    ASSERT_TRUE(waitUntil([&] { return delegate.outcome.calls > 0; }));
    tx::test::drainEvents();
    EXPECT_EQ(delegate.asked, 1);
    EXPECT_TRUE(delegate.askedOnMain);
    EXPECT_TRUE(delegate.outcome.feed);
    EXPECT_TRUE(delegate.outcome.onMain);
    EXPECT_THAT(server.requests().first().body.toStdString(), testing::HasSubstr("\"source\": \"menu\""));
}

TEST_F(Updater, DelegateIsNotToldWhenThereIsAHandler) {
    RecordingDelegate delegate;
    updater->setDelegate(&delegate);
    check();
    EXPECT_EQ(delegate.asked, 1);
    EXPECT_EQ(delegate.outcome.calls, 0);
}

class UpdaterTimer : public Updater {
protected:
    /// The timer runs on real time; what it was set to shows in when it fires.
    bool firesWithin(int milliseconds, FeedServer &server) {
        const qsizetype before = server.requests().size();
        return waitUntil([&] { return server.requests().size() > before; }, milliseconds);
    }
};

TEST_F(UpdaterTimer, ChecksRepeatAtTheIntervalAndStopWhenSwitchedOff) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json("{}"); });
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    updater->setUpdateCheckInterval(0.05);
    EXPECT_FALSE(firesWithin(200, server)) << "automatic checks are off";
    updater->setAutomaticallyChecksForUpdates(true);
    EXPECT_TRUE(firesWithin(20000, server));
    EXPECT_TRUE(firesWithin(20000, server)) << "it repeats";
    updater->setUpdateCheckInterval(-1);
    ASSERT_TRUE(waitUntil([this] { return !updater->isChecking(); }));
    tx::test::drainEvents();
    EXPECT_FALSE(firesWithin(200, server)) << "an interval that is not positive";
    updater->setUpdateCheckInterval(0.05);
    EXPECT_TRUE(firesWithin(20000, server));
    updater->setAutomaticallyChecksForUpdates(false);
    ASSERT_TRUE(waitUntil([this] { return !updater->isChecking(); }));
    tx::test::drainEvents();
    EXPECT_FALSE(firesWithin(200, server));
}

TEST_F(UpdaterTimer, FinishedCheckSchedulesAnew) {
    FeedServer server;
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json("{}"); });
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    tx::test::drainEvents();
    // Written past the setters, so that nothing but the end of a check can have looked at them.
    tx::UserDefaults &defaults = tx::UserDefaults::standard();
    ASSERT_TRUE(defaults.setValue(TXUpdatePrefUpdateCheckIntervalKey, 0.05).isNull());
    ASSERT_TRUE(defaults.setValue(TXUpdatePrefAutomaticallyChecksForUpdatesKey, true).isNull());
    EXPECT_FALSE(firesWithin(200, server));
    check();
    EXPECT_TRUE(firesWithin(20000, server));
    updater->setAutomaticallyChecksForUpdates(false);
    ASSERT_TRUE(waitUntil([this] { return !updater->isChecking(); }));
    tx::test::drainEvents();
}

TEST_F(UpdaterTimer, FirstFiringIsOneWholeIntervalAway) {
    FeedServer server; // an early request would be unexpected
    updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
    updater->setUpdateCheckInterval(3600);
    updater->setAutomaticallyChecksForUpdates(true);
    EXPECT_FALSE(firesWithin(200, server));
    updater->setAutomaticallyChecksForUpdates(false);
    tx::test::drainEvents();
}

TEST_F(Updater, AnnouncesThatItIsChecking) {
    QList<bool> states;
    QObject context;
    QObject::connect(updater, &TXUpdater::isCheckingChanged, &context,
                     [&] { states << updater->isChecking(); });
    check();
    EXPECT_EQ(states, (QList<bool>{true, false}));
}

/// Records the signals of checks by name, in order.
class UpdaterSignals : public Updater {
protected:
    FeedServer server;
    QStringList names;
    QSignalSpy found{updater, &TXUpdater::updateFound};
    QSignalSpy failures{updater, &TXUpdater::failed};
    QSignalSpy finished{updater, &TXUpdater::checkFinished};

    UpdaterSignals() {
        updater->setFeedURL(QUrl(server.url(u"/feed.json"_s)));
        QObject::connect(updater, &TXUpdater::updateFound, &m_context, [this] { names << u"found"_s; });
        QObject::connect(updater, &TXUpdater::failed, &m_context, [this] { names << u"failed"_s; });
        QObject::connect(updater, &TXUpdater::checkFinished, &m_context, [this] { names << u"finished"_s; });
    }
    /// Checks for updates in a feed. The handler must be called before the signals.
    void checkFeed(const HttpReply &reply) {
        server.expect("GET", "/feed.json", reply);
        updater->checkForUpdate([this](const TXUpdateFeedPtr &feed, const TXError &error) {
            outcome(feed, error);
            names << u"handler"_s;
        });
        ASSERT_TRUE(waitUntil([this] { return !finished.isEmpty(); }));
        tx::test::drainEvents();
        EXPECT_EQ(finished.count(), 1);
        EXPECT_EQ(finished.value(0).value(0).value<TXUpdateFeedPtr>(), outcome.feed);
    }

private:
    QObject m_context;
};

TEST_F(UpdaterSignals, FoundUpdateIsCarriedBeforeTheCheckIsFinished) {
    checkFeed(HttpReply::json(oneUpdate));
    EXPECT_EQ(names, (QStringList{u"handler"_s, u"found"_s, u"finished"_s}));
    ASSERT_EQ(found.count(), 1);
    EXPECT_EQ(found[0][0].value<TXUpdatePtr>(), outcome.feed->recommendedUpdate());
    EXPECT_TRUE(updater->lastUpdateCheckDate().isValid());
}

TEST_F(UpdaterSignals, FailureCarriesItsErrorAndNoFeedFollows) {
    checkFeed(HttpReply{.status = 500});
    EXPECT_EQ(names, (QStringList{u"handler"_s, u"failed"_s, u"finished"_s}));
    ASSERT_EQ(failures.count(), 1);
    EXPECT_EQ(failures[0][0].value<TXError>(), outcome.error);
    EXPECT_TRUE(outcome.error);
    EXPECT_FALSE(outcome.feed);
}

TEST_F(UpdaterSignals, NothingNewIsNotAFoundUpdate) {
    checkFeed(HttpReply::json("{}"));
    EXPECT_EQ(names, (QStringList{u"handler"_s, u"finished"_s}));
    EXPECT_TRUE(outcome.feed);
}

TEST_F(UpdaterSignals, IgnoredUpdateIsNotAFoundOne) {
    TXUpdate ignored;
    ignored.setVersion(u"1043"_s);
    ignored.ignore();
    checkFeed(HttpReply::json(oneUpdate));
    EXPECT_EQ(names, (QStringList{u"handler"_s, u"finished"_s}));
}

TEST_F(UpdaterSignals, ChecksWithoutAHandlerHaveThemOnceForEach) {
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json(oneUpdate); });
    for (int checks = 1; checks <= 2; ++checks) {
        updater->autocheckForUpdate();
        updater->autocheckForUpdate(); // dropped
        ASSERT_TRUE(waitUntil([&] { return finished.count() >= checks; }));
        tx::test::drainEvents();
        EXPECT_EQ(finished.count(), checks);
        EXPECT_EQ(found.count(), checks);
    }
    EXPECT_TRUE(failures.isEmpty());
}

TEST_F(UpdaterSignals, SlotMayStartTheNextCheck) {
    server.always([](const tx::test::HttpRequest &) { return HttpReply::json("{}"); });
    QObject context;
    QObject::connect(updater, &TXUpdater::checkFinished, &context, [this] {
        if (finished.count() < 3)
            updater->autocheckForUpdate();
    });
    updater->autocheckForUpdate();
    ASSERT_TRUE(waitUntil([this] { return finished.count() == 3; }));
    tx::test::drainEvents();
    EXPECT_FALSE(updater->isChecking());
}

TEST_F(Updater, SignalsArriveOnTheMainThread) {
    std::atomic<int> onMain{0};
    std::atomic<int> elsewhere{0};
    QObject context;
    const auto count = [&] {
        ++(QThread::currentThread() == QCoreApplication::instance()->thread() ? onMain : elsewhere);
    };
    QObject::connect(updater, &TXUpdater::isCheckingChanged, &context, count, Qt::DirectConnection);
    QObject::connect(updater, &TXUpdater::settingsChanged, &context, count, Qt::DirectConnection);
    QObject::connect(updater, &TXUpdater::failed, &context, count, Qt::DirectConnection);
    QObject::connect(updater, &TXUpdater::checkFinished, &context, count, Qt::DirectConnection);
    int reports = 0;
    constexpr int rounds = 20;
    for (int i = 0; i < rounds; ++i) {
        const int before = reports;
        std::thread([&] {
            updater->checkForUpdate([&](const TXUpdateFeedPtr &, const TXError &) { ++reports; });
            updater->setSendsSystemProfile(false);
        }).join();
        ASSERT_TRUE(waitUntil([&] { return reports > before; }));
    }
    tx::test::drainEvents();
    EXPECT_EQ(elsewhere, 0);
    EXPECT_EQ(onMain, 6 * rounds) << "began, ended, a setting, the dates, failed without a feed, finished";
}

} // namespace
