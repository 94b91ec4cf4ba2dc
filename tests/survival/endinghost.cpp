// SPDX-License-Identifier: MIT
// ending_host BUNDLE STAGE WAY [FEED]: a host application, standing in BUNDLE, on one processor. It brings
// the framework to STAGE and ends by WAY, with status 7, when a line comes from its standard input (or
// SIGTERM, where the way says so). What it prints tells how far it came.

#include "base/queues.h"
#include "model/host_p.h"
#include "os/mainbundle.h"
#include "os/services.h"
#include "posix/systemreport.h"

#include <TarvixUpdate/TarvixUpdate.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QThreadPool>

#include <atomic>
#include <csignal>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int status = 7;

void say(const QByteArray &line) {
    const QByteArray text = line + '\n';
    (void)!write(STDOUT_FILENO, text.constData(), static_cast<size_t>(text.size()));
}

/// A read of the system's files that hangs until the static objects go.
struct HangingRead {
    int ends[2] = {-1, -1};
    std::atomic<pid_t> thread{0};

    void hang() {
        (void)!pipe(ends);
        thread = gettid();
        say("reading");
        char byte = 0;
        while (read(ends[0], &byte, 1) < 0) {
        }
    }
    /// Lets the thread continue, and waits for its end.
    void release() {
        if (thread == 0)
            return;
        close(ends[1]);
        const std::string folder = "/proc/self/task/" + std::to_string(thread);
        for (int i = 0; access(folder.c_str(), F_OK) == 0; ++i) {
            constexpr int most = 10000;
            if (i == most) {
                say("late thread");
                return;
            }
            usleep(1000);
        }
    }
};
auto &hangingRead = *new HangingRead;

/// Made before everything of the framework, so it goes after it, and uses what it can reach all the same.
struct LastToGo {
    TXUpdatePtr update;
    const std::thread::id thread = std::this_thread::get_id();
    ~LastToGo() {
        TXUpdater *updater = TXUpdater::sharedUpdater();
        updater->checkForUpdate([](const TXUpdateFeedPtr &, const TXError &) { say("late check"); });
        (void)updater->feedURL();
        (void)updater->versionComparator();
        (void)TXUpdateHost::host()->bundle().bundlePath();
        (void)TXUpdater::compareVersionToVersion(u"1.0"_s, u"1.1"_s);
        TXUpdateFeed::fetchFeedAtURL(updater->feedURL(), {}, nullptr,
                                     [](const TXUpdateFeedPtr &, const TXError &) { say("late feed"); });
        TXUpdateFeed(updater->feedURL(), {}, nullptr, nullptr).fetch();
        if (std::this_thread::get_id() == thread)
            update.reset();
        else // an update is the main thread's
            new TXUpdatePtr(std::move(update));
        hangingRead.release();
        say("static objects gone");
    }
};
LastToGo lastToGo;

class Delegate final : public TXUpdaterDelegate {
public:
    QVariantMap feedParametersForUpdater(TXUpdater *) override {
        say("asked");
        if (endsWhenAsked)
            std::exit(status);
        return {};
    }
    bool endsWhenAsked = false;
};

[[noreturn]] void blockForEver() {
    for (;;)
        pause();
}

void waitForLine() {
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) < 0) {
    }
}

void check(const std::function<void(const TXUpdatePtr &)> &found = {}) {
    TXUpdater::sharedUpdater()->checkForUpdate([found](const TXUpdateFeedPtr &feed, const TXError &error) {
        say(error ? "check failed: " + error.toString().toUtf8() : "checked");
        if (feed && found) {
            lastToGo.update = feed->recommendedUpdate();
            found(lastToGo.update);
        }
    });
}

void download(bool installs) {
    check([installs](const TXUpdatePtr &update) {
        update->downloadWithProgress(nullptr, [update = update.get(), installs](const TXError &error) {
            say(error ? "download failed: " + error.toString().toUtf8() : "downloaded");
            if (!error && installs)
                update->installWithErrorHandler(
                    [](const TXError &failure) { say("install ended: " + failure.toString().toUtf8()); });
        });
    });
}

void fillHostsPool() {
    QThreadPool *pool = QThreadPool::globalInstance();
    const auto release = std::make_shared<std::atomic<bool>>(false);
    for (int i = 0; i < pool->maxThreadCount() + 1; ++i) {
        pool->start([release] {
            while (!*release)
                QThread::msleep(5);
        });
    }
    // The application object waits for these when it goes: that is the host's own affair.
    TXUpdater::sharedUpdater()->checkForUpdate([release](const TXUpdateFeedPtr &, const TXError &) {
        say("checked");
        *release = true;
    });
}

void goTo(const QString &stage, const QString &feed) {
    if (stage == u"check") {
        check();
    } else if (stage == u"profile") {
        tx::services().systemReport = [] {
            hangingRead.hang();
            return std::vector<tx::machine::Section>{{"SPHardwareDataType", {}}};
        };
        TXUpdater::sharedUpdater()->setSendsSystemProfile(true);
        check();
    } else if (stage == u"download") {
        download(false);
    } else if (stage == u"unpack") {
        download(true);
    } else if (stage == u"full-pool") {
        fillHostsPool();
    } else if (stage == u"scheduled") {
        TXUpdater *updater = TXUpdater::sharedUpdater();
        updater->setUpdateCheckInterval(0.05);
        updater->setAutomaticallyChecksForUpdates(true);
        std::exit(0);
    } else if (stage == u"made") {
        (void)TXUpdater::sharedUpdater();
    } else if (stage == u"stuck-network") {
        TXUpdateFeed::fetchFeedAtURL(QUrl(feed), {}, nullptr, [](const TXUpdateFeedPtr &, const TXError &) {
            say("stuck");
            blockForEver();
        });
    } else if (stage == u"stuck-job") {
        tx::runInBackground([] {
            say("stuck");
            blockForEver();
        });
    }
}

int terminated[2];

void end(const QString &way) {
    if (way == u"exit" || way == u"term-exit")
        std::exit(status);
    if (way == u"thread-exit") {
        std::thread([] { std::exit(status); }).detach();
        blockForEver();
    }
    QCoreApplication::exit(status);
}

} // namespace

/// Asked by AddressSanitizer: a process that ends in the middle of its work frees nothing.
extern "C" [[gnu::visibility("default")]] const char *
__asan_default_options();                         // NOLINT(bugprone-reserved-identifier)
extern "C" const char *__asan_default_options() { // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}

int main(int argc, char **argv) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
    QCoreApplication application(argc, argv);
    const QStringList words = QCoreApplication::arguments();
    const QString stage = words.value(2);
    const QString way = words.value(3);
    const QString feed = words.value(4);
    tx::setMainBundle(TXBundle(words.value(1)));
    tx::resetHost();
    tx::services().folders.localApplications = [] { return u"/nonexistent"_s; };
    if (stage != u"made")
        TXUpdater::sharedUpdater()->setFeedURL(QUrl(feed));

    static Delegate delegate;
    if (stage == u"busy" || stage == u"move" || stage == u"asked") {
        TXUpdater::sharedUpdater()->setDelegate(&delegate);
        delegate.endsWhenAsked = stage == u"asked";
        check();
        tx::runInBackground([] { (void)tx::runOnMainAndWait([] { say("answered"); }); });
        say("started");
        waitForLine(); // the check and the job wait for this thread meanwhile
        if (stage == u"move") {
            const auto result = TXUpdateAppMover::moveToApplicationsFolderWithoutAsking();
            say("move: " + QByteArray::number(int(result)));
            return 1;
        }
        if (way == u"exit")
            std::exit(status);
        if (way == u"return")
            return status;
    }
    if (way.startsWith(u"term")) {
        (void)!pipe(terminated);
        std::signal(SIGTERM, [](int) { (void)!write(terminated[1], "x", 1); });
    }
    const QSocketNotifier told(way.startsWith(u"term") ? terminated[0] : STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&told, &QSocketNotifier::activated, &application, [way] { end(way); });
    tx::postToMain([stage, feed] { goTo(stage, feed); });
    return QCoreApplication::exec();
}
