// SPDX-License-Identifier: MIT
#include "base/queues.h"

#include "base/mailbox.h"
#include "base/shared.h"

#include <TarvixUpdate/TXLog.h>

#include <QCoreApplication>
#include <QMetaType>
#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// How long the end of the application waits for a job that cannot be interrupted, such as a read from a file
/// system that hangs. After that the job is abandoned.
constexpr std::chrono::seconds longestWaitAtEnd(5);

bool isMainThread() {
    const QCoreApplication *application = QCoreApplication::instance();
    return application && QThread::currentThread() == application->thread();
}

/// The framework's own threads for blocking jobs. Never destroyed: an abandoned job may outlive static
/// objects. The queue has the framework's own mutex: see Mailbox.
class Background {
public:
    static Background &instance() {
        static auto *theInstance = new Background;
        return *theInstance;
    }

    void run(std::function<void()> work) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_closed)
                return;
            m_work.push_back(std::move(work));
            ++m_unfinished;
        }
        m_pool.start([this] { runNext(); });
    }

    bool wait(std::chrono::milliseconds limit) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [this] { return m_unfinished == 0; });
    }

    /// Drops jobs that have not started and waits for the others, unless one of them ends the process.
    void close() {
        std::deque<std::function<void()>> dropped;
        {
            const std::lock_guard lock(m_mutex);
            m_closed = true;
            m_unfinished -= m_work.size();
            dropped.swap(m_work);
        }
        if (m_pool.contains(QThread::currentThread()))
            return;
        if (wait(longestWaitAtEnd))
            m_pool.waitForDone(); // idle threads end
        else
            TXLog(TXLogLevelFailure, u"TXUpdate: a background job does not end and is left behind."_s);
    }

    void reopen() {
        const std::lock_guard lock(m_mutex);
        m_closed = false;
    }

private:
    Background() {
        // Not the number of processors: the jobs block, and the main thread may wait for one of them.
        constexpr int enough = 256;
        m_pool.setMaxThreadCount(enough);
        m_pool.setObjectName(u"TarvixUpdate background"_s);
    }

    void runNext() {
        std::function<void()> next;
        {
            const std::lock_guard lock(m_mutex);
            if (m_work.empty())
                return; // dropped
            next = std::move(m_work.front());
            m_work.pop_front();
        }
        next();
        next = nullptr; // its captures are destroyed before it counts as finished
        const std::lock_guard lock(m_mutex);
        --m_unfinished;
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_work;
    size_t m_unfinished = 0;
    bool m_closed = false;
    QThreadPool m_pool;
};

/// The main thread's mailbox; destroyed with the application object.
struct MainMailbox {
    std::mutex mutex;
    Mailbox *mailbox = nullptr;
};

MainMailbox &mainMailbox() {
    static auto *instance = new MainMailbox; // a thread may outlast static objects
    return *instance;
}

/// postToMain() for callers that already know of the end.
void post(std::function<void()> work) {
    MainMailbox &box = mainMailbox();
    const std::lock_guard lock(box.mutex);
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return;
    if (!box.mailbox) {
        box.mailbox = new Mailbox(application->thread());
        QObject::connect(
            application, &QObject::destroyed, box.mailbox,
            [&box] {
                Mailbox *gone = nullptr;
                {
                    const std::lock_guard inner(box.mutex);
                    gone = std::exchange(box.mailbox, nullptr);
                }
                delete gone;
            },
            Qt::DirectConnection);
    }
    box.mailbox->post(std::move(work));
}

} // namespace

/// What happens at the end of the application, and whether that end has begun.
class EndOfApplication {
public:
    static EndOfApplication &instance() {
        static auto *theInstance = new EndOfApplication; // static objects may need it last
        return *theInstance;
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;

    void add(std::function<void()> work, AtEnd where) {
        watch();
        const std::lock_guard lock(mutex);
        m_steps.push_back({std::move(work), where});
    }

    void add(const InterruptAtEnd *interrupt) {
        watch();
        const std::lock_guard lock(mutex);
        m_interrupts.push_back(interrupt);
        if (ending)
            interrupt->m_interrupt();
    }

    void remove(const InterruptAtEnd *interrupt) {
        const std::lock_guard lock(mutex);
        std::erase(m_interrupts, interrupt);
    }

    /// Makes sure that every way of ending the process calls this:
    /// - the application object goes: it calls this before it goes;
    /// - exit() while there is one, on the main thread: that thread's own objects go before everything
    /// static,
    ///   so threads still have all that they use;
    /// - exit() on another thread, or before the main thread has come by here.
    void watch() {
        bool first = false;
        {
            const std::lock_guard lock(mutex);
            first = !std::exchange(m_watching, true);
        }
        if (first) {
            // Static objects are destroyed in the reverse order of their construction. Qt constructs its
            // registry of types when the first type is registered, usually on the network thread. The
            // registry must be destroyed after that thread has been stopped here.
            struct FirstType {};
            (void)QMetaType::fromType<FirstType>().id();
            qAddPostRoutine([] { instance().end(false); });
            [[maybe_unused]] static const int registered = std::atexit([] { instance().endProcess(); });
        }
        if (isMainThread())
            watchMainThread();
        else if (first)
            post([] { watchMainThread(); });
    }

private:
    struct Step {
        std::function<void()> work;
        AtEnd where;
    };

    struct MainThreadsEnd {
        ~MainThreadsEnd() {
            // Without an application object, its end has already been handled, and the process may continue.
            if (QCoreApplication::instance())
                instance().endProcess();
        }
    };

    EndOfApplication() = default;

    static void watchMainThread() {
        thread_local MainThreadsEnd atItsEnd;
        (void)&atItsEnd;
    }

    void endProcess() {
        // A forked child of the host has none of our threads, but the locks that they held.
        if (QCoreApplication::applicationPid() == m_process)
            end(true);
    }

    void end(bool forGood) {
        std::vector<Step> steps;
        {
            const std::lock_guard lock(mutex);
            ending = true;
            steps.swap(m_steps);
            for (const InterruptAtEnd *interrupt : m_interrupts)
                interrupt->m_interrupt();
        }
        changed.notify_all();
        Background::instance().close();
        for (const Step &step : steps) {
            if (step.where == AtEnd::OnAnyThread || isMainThread())
                step.work();
        }
        if (forGood)
            return;
        // A program may create another application object.
        Background::instance().reopen();
        const std::lock_guard lock(mutex);
        ending = false;
        m_watching = false;
    }

    const qint64 m_process = QCoreApplication::applicationPid();
    bool m_watching = false;
    std::vector<Step> m_steps;
    std::vector<const InterruptAtEnd *> m_interrupts;
};

TX_SHARED void postToMain(std::function<void()> work) {
    EndOfApplication::instance().watch();
    post(std::move(work));
}

TX_SHARED bool runOnMainAndWait(std::function<void()> work) {
    if (!QCoreApplication::instance())
        return false;
    if (isMainThread()) {
        work();
        return true;
    }
    struct State {
        bool done = false;
        bool abandoned = false;
    };
    const auto state = std::make_shared<State>();
    EndOfApplication &end = EndOfApplication::instance();
    end.watch();
    std::unique_lock lock(end.mutex);
    if (end.ending)
        return false;
    post([state, work = std::move(work), &end] {
        {
            const std::lock_guard inner(end.mutex);
            if (state->abandoned)
                return; // nobody waits any more
        }
        work();
        const std::lock_guard inner(end.mutex);
        state->done = true;
        end.changed.notify_all();
    });
    end.changed.wait(lock, [&] { return state->done || end.ending; });
    state->abandoned = !state->done;
    return state->done;
}

void runInBackground(std::function<void()> work) {
    EndOfApplication::instance().watch();
    Background::instance().run(std::move(work));
}

bool waitForBackground(std::chrono::milliseconds limit) { return Background::instance().wait(limit); }

TX_SHARED void whenApplicationEnds(std::function<void()> work, AtEnd where) {
    EndOfApplication::instance().add(std::move(work), where);
}

TX_SHARED bool applicationIsEnding() {
    EndOfApplication &end = EndOfApplication::instance();
    const std::lock_guard lock(end.mutex);
    return end.ending;
}

InterruptAtEnd::InterruptAtEnd(std::function<void()> interrupt)
    : m_interrupt(std::move(interrupt)) {
    EndOfApplication::instance().add(this);
}

InterruptAtEnd::~InterruptAtEnd() { EndOfApplication::instance().remove(this); }

} // namespace tx
