// SPDX-License-Identifier: MIT
// Things that happen at the same time, in any order, or while the clock does not go on as it should.
#include "base/queues.h"
#include "model/updatefolder.h"
#include "os/filesystem.h"
#include "os/tasks.h"
#include "tests/support/places.h"
#include "tests/survival/survivaltest.h"

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdateFeed.h>
#include <TarvixUpdate/TXUpdater.h>

#include <QCoreApplication>
#include <QRandomGenerator>

#include <atomic>
#include <fstream>
#include <thread>

using namespace Qt::StringLiterals;
using tx::test::HttpReply;
using tx::test::HttpRequest;
using tx::test::namesIn;
using tx::test::Outcome;
using tx::test::treeOf;
using tx::test::waitUntil;

namespace {

class RandomOrders : public tx::test::FrameworkTest {
protected:
    /// How many of them; the long runs ask for more.
    static int runs() {
        const int asked = qEnvironmentVariableIntValue("TARVIX_RANDOM_RUNS");
        return asked > 0 ? asked : 300;
    }
};

/// Checks, downloads, cancels, installs a broken archive, lets go and lets time pass, in an order that a seed
/// makes.
TEST_F(RandomOrders, OfCheckDownloadCancelAndDestructionHarmNothing) {
    tx::test::FeedServer server;
    server.always([&](const HttpRequest &request) {
        if (request.path() == "/feed")
            return HttpReply::json("{\"release\":[{\"type\":\"build\",\"build\":\"2000\",\"version\":\"3.0\","
                                   "\"downloadURL\":\"" +
                                   server.url(u"/New.zip"_s).toUtf8() + "\"}]}");
        return HttpReply::file(QByteArray(20000, 'x'), "application/zip");
    });
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(server.url(u"/feed"_s)));
    const QString cache = tx::UpdateFolder::ofHost().path();
    int checked = 0;
    int downloaded = 0;
    int cancelled = 0;
    int installed = 0;
    for (int seed = 0; seed < runs(); ++seed) {
        SCOPED_TRACE(seed);
        QRandomGenerator random(static_cast<quint32>(seed));
        QList<TXUpdatePtr> updates;
        int downloadsBegun = 0;
        int downloadsEnded = 0;
        int installsBegun = 0;
        int installsEnded = 0;
        int checksBegun = 0;
        int checksEnded = 0;
        const auto fresh = [&] {
            const auto update = std::make_shared<TXUpdate>();
            update->setVersion(QString::number(random.bounded(3)));
            update->setFileURL(QUrl(server.url(u"/New.zip"_s)));
            updates << update;
        };
        fresh();
        const int steps = 4 + random.bounded(6);
        for (int step = 0; step < steps; ++step) {
            const TXUpdatePtr update = updates.isEmpty() ? nullptr : updates[random.bounded(updates.size())];
            switch (random.bounded(9)) {
            case 0:
                if (!updater->isChecking()) {
                    ++checksBegun;
                    updater->checkForUpdate([&](const TXUpdateFeedPtr &feed, const TXError &error) {
                        ++checksEnded;
                        if (!error && feed->recommendedUpdate())
                            updates << feed->recommendedUpdate();
                    });
                }
                break;
            case 1:
            case 2:
                if (update && !update->isDownloading() && !update->isDownloaded()) {
                    ++downloadsBegun;
                    update->downloadWithProgress([](double) {}, [&](const TXError &) { ++downloadsEnded; });
                }
                break;
            case 3:
                if (update) {
                    cancelled += update->isDownloading();
                    update->cancelDownload();
                }
                break;
            case 4:
                if (update && update->isDownloaded() && !update->isInstalling()) {
                    ++installsBegun;
                    update->installWithErrorHandler([&](const TXError &error) {
                        EXPECT_TRUE(error) << "it is no archive";
                        ++installsEnded;
                    });
                }
                break;
            case 5:
                fresh();
                break;
            case 6:
                // Lets go of one that does nothing; one that does is let go of at the end.
                if (update && !update->isDownloading() && !update->isInstalling())
                    updates.removeOne(update);
                break;
            case 7:
                if (update && update->isDownloading())
                    (void)waitUntil([&] { return !update->isDownloading(); });
                break;
            default:
                QCoreApplication::processEvents(QEventLoop::AllEvents, random.bounded(3));
            }
        }
        const bool waits = random.bounded(2) == 0;
        if (waits) {
            EXPECT_TRUE(waitUntil([&] {
                return downloadsEnded == downloadsBegun && installsEnded == installsBegun &&
                       checksEnded == checksBegun;
            })) << downloadsEnded
                << '/' << downloadsBegun << ' ' << installsEnded << '/' << installsBegun;
        }
        // What still runs loses its update here, in the middle.
        updates.clear();
        EXPECT_TRUE(waitUntil([&] {
            return downloadsEnded == downloadsBegun && installsEnded == installsBegun;
        })) << "each handler is called once, also for an update that is gone: "
            << downloadsEnded << '/' << downloadsBegun << ' ' << installsEnded << '/' << installsBegun;
        tx::test::drainEvents();
        EXPECT_EQ(downloadsEnded, downloadsBegun);
        EXPECT_EQ(installsEnded, installsBegun);
        EXPECT_TRUE(waitUntil([&] { return checksEnded == checksBegun; }));
        updates.clear();
        EXPECT_TRUE(waitUntil([&] { return bool(tx::nativeFileSystem().tryLock(cache + u".lock"_s)); }));
        checked += checksEnded;
        downloaded += downloadsEnded;
        installed += installsEnded;
        // Unpacking may go on behind; it must not be in the way of the next.
        if (HasFailure())
            break;
    }
    EXPECT_TRUE(tx::waitForBackground(std::chrono::minutes(1)));
    tx::test::drainEvents();
    EXPECT_FALSE(namesIn(cache).contains(u".txupdate-download"_s));
    EXPECT_GT(checked, runs() / 10);
    EXPECT_GT(downloaded, runs() / 10);
    EXPECT_GT(cancelled, runs() / 50);
    EXPECT_GT(installed, 0);
}

class TwoHosts : public tx::test::Survival {};

TEST_F(TwoHosts, OfOneBundleUpdateAtOnceAndLeaveOneCompleteApplication) {
    int bothDone = 0;
    for (int round = 0; round < 12; ++round) {
        prepare();
        Outcome outcomes[2];
        std::thread other([&] { outcomes[1] = startAndWait(round % 4 * 5); });
        outcomes[0] = startAndWait(0);
        other.join();
        EXPECT_TRUE(endSurvivors(20000));
        expectComplete();
        expectReadableSettings();
        for (const Outcome &outcome : outcomes) {
            EXPECT_THAT(outcome.status, testing::AnyOf(0, 1, 2, 10)) << outcome.text.constData();
            // The one that came second is told so, or finds the work done.
            if (outcome.status == 1) {
                EXPECT_THAT(outcome.text.toStdString(),
                            testing::AnyOf(testing::HasSubstr("Another copy of the application"),
                                           testing::HasSubstr("Could not"), testing::HasSubstr("missing")));
            }
        }
        EXPECT_TRUE(outcomes[0].status == 0 || outcomes[1].status == 0)
            << outcomes[0].text.constData() << outcomes[1].text.constData();
        bothDone += outcomes[0].status == 0 && outcomes[1].status == 0;
        EXPECT_LE(launched(), 2);
        // Whoever comes next finds nothing in the way.
        for (int i = 0; i < 2 && update().status != 10; ++i) {
        }
        EXPECT_EQ(treeOf(app), newTree) << log().constData();
        EXPECT_EQ(namesIn(root + u"/Applications"_s), QStringList{u"My Host.app"_s});
        if (HasFailure())
            break;
    }
    RecordProperty("both_handed_over", bothDone);
}

class Suspended : public tx::test::Survival {};

TEST_F(Suspended, HostGoesOnWhereItWas) {
    prepare();
    const Outcome outcome = startAndWait(0, 3);
    EXPECT_EQ(outcome.status, 0) << outcome.text.constData();
    EXPECT_TRUE(endSurvivors(20000));
    EXPECT_EQ(treeOf(app), newTree);
    expectNoStrays();
}

class Clock : public tx::test::FrameworkTest {
protected:
    tx::test::FeedServer server;
    std::atomic<int> checks{0};
    Clock() {
        server.always([this](const HttpRequest &) {
            ++checks;
            return HttpReply::json("{\"release\":[]}");
        });
    }
};

TEST_F(Clock, SetBackOrForwardNeitherStopsNorMultipliesTheChecks) {
    TXUpdater *updater = TXUpdater::sharedUpdater();
    updater->setFeedURL(QUrl(server.url(u"/feed"_s)));
    const QDateTime start = QDateTime::currentDateTimeUtc();
    for (const qint64 years : {0, -20, 40, -3}) {
        setNow(start.addYears(static_cast<int>(years)));
        const int before = checks;
        updater->setUpdateCheckInterval(0.05);
        updater->setAutomaticallyChecksForUpdates(true);
        ASSERT_TRUE(waitUntil([&] { return checks >= before + 2; })) << years;
        updater->setAutomaticallyChecksForUpdates(false);
        ASSERT_TRUE(waitUntil([&] { return !updater->isChecking(); }));
        tx::test::drainEvents();
    }
    EXPECT_LT(checks, 60) << "none for the years that passed";
}

TEST_F(Clock, ProgressGoesOnWhenTheClockIsSetBack) {
    double now = 1000;
    tx::services().secondsSinceReferenceDate = [&now] { return now; };
    tx::test::FeedServer archives;
    archives.always([](const HttpRequest &) { return HttpReply::file(QByteArray(3 << 20, 'x')); });
    const auto update = std::make_shared<TXUpdate>();
    update->setVersion(u"5"_s);
    update->setFileURL(QUrl(archives.url(u"/App.zip"_s)));
    int reports = 0;
    bool done = false;
    update->downloadWithProgress(
        [&](double) {
            ++reports;
            now -= 100000;
        },
        [&](const TXError &) { done = true; });
    ASSERT_TRUE(waitUntil([&] { return done; }));
    EXPECT_GT(reports, 1);
}

TEST_F(Clock, TimeZoneOfThisMachineDoesNotCount) {
    const QByteArray before = qgetenv("TZ");
    for (const char *zone :
         {"UTC", "Pacific/Kiritimati", "America/Los_Angeles", "Asia/Kathmandu", "No/Where"}) {
        qputenv("TZ", zone);
        tzset();
        TXUpdate update;
        update.setDateString(u"2024-03-10 02:30:00"_s); // in the hour that feeds' own zone leaves out
        EXPECT_FALSE(update.date().isValid()) << zone;
        TXUpdate other;
        other.setDateString(u"2024-07-01 12:00:00"_s);
        EXPECT_EQ(other.date().toMSecsSinceEpoch(), 1719860400000) << zone;
    }
    qputenv("TZ", before);
    tzset();
}

class RewrittenFeed : public tx::test::FrameworkTest {};

TEST_F(RewrittenFeed, IsTheOldTheNewOrAnError) {
    const QString file = path(u"site/feed.json"_s);
    const auto content = [](int build) {
        const QByteArray number = QByteArray::number(build);
        return "{\"release\":[{\"type\":\"build\",\"build\":\"" + number + "\",\"version\":\"" + number +
               "\",\"title\":\"" + QByteArray(5000 + build % 7 * 1000, 't') +
               "\",\"downloadURL\":\"http://127.0.0.1/" + number + ".zip\"}]}";
    };
    tx::test::writeFile(file, content(2000));
    // By the framework's own way to start programs: after Qt's, ThreadSanitizer takes no notice of this
    // thread.
    auto serving = tx::nativeTasks().start({.program = tx::test::programsFolder() + u"/txupdate"_s,
                                            .arguments = {u"serve"_s, path(u"site"_s), u"--port"_s, u"0"_s},
                                            .readsOutput = true,
                                            .ownSession = true});
    ASSERT_TRUE(serving);
    const QByteArray line = (*serving)->read().split('\n').first();
    // What it prints is read, or it would wait.
    std::thread reader([&] {
        while (!(*serving)->read().isEmpty()) {
        }
    });
    const qsizetype at = line.indexOf("http://");
    ASSERT_GE(at, 0) << line.constData();
    const QUrl url(QString::fromUtf8(line.mid(at)).trimmed() + u"feed.json"_s);
    std::atomic<bool> stop{false};
    std::atomic<int> fetched{0};
    std::thread writer([&] {
        for (int build = 2000; !stop; ++build) {
            // Every tenth one stays until somebody has asked for it after it was complete.
            for (const int before = fetched; build % 10 == 0 && fetched < before + 2 && !stop;)
                std::this_thread::yield();
            // Not as one should: in place, and in two pieces.
            const QByteArray text = content(build % 8000 + 2000);
            std::ofstream out(file.toStdString(), std::ios::trunc);
            out.write(text.constData(), 2500).flush();
            std::this_thread::yield();
            out.write(text.constData() + 2500, text.size() - 2500);
        }
    });
    int read = 0;
    int refused = 0;
    for (int i = 0; i < 300; ++i) {
        const tx::test::FetchedFeed answer = tx::test::fetchFeed(url);
        ++fetched;
        if (answer.error) {
            ++refused;
            continue;
        }
        if (const TXUpdatePtr update = answer.feed->recommendedUpdate()) {
            ++read;
            EXPECT_EQ(update->version(), update->displayVersion());
            EXPECT_TRUE(update->fileURL().path().contains(update->version()));
        }
    }
    stop = true;
    writer.join();
    ::kill(static_cast<pid_t>((*serving)->processIdentifier()), SIGTERM);
    reader.join();
    (void)(*serving)->wait();
    EXPECT_GT(read, 0);
    EXPECT_GT(read + refused, 250);
}

} // namespace
