// SPDX-License-Identifier: MIT
#include "platform/queues.h"

#include "platform/mailbox.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tx {

namespace {

/// What runs at the end of the application, and whether that end has begun.
class EndOfApplication {
public:
    static EndOfApplication &instance() {
        static EndOfApplication theInstance;
        return theInstance;
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;

    void add(std::function<void()> work) {
        const std::lock_guard lock(mutex);
        watch();
        m_work.push_back(std::move(work));
    }

    /// Call with the mutex held. The application object runs this before it waits for the thread pool.
    void watch() {
        if (!m_watching)
            qAddPostRoutine([] { instance().end(); });
        m_watching = true;
    }

private:
    void end() {
        std::vector<std::function<void()>> work;
        {
            const std::lock_guard lock(mutex);
            ending = true;
            work.swap(m_work);
        }
        changed.notify_all();
        for (const std::function<void()> &step : work)
            step();
        const std::lock_guard lock(mutex);
        ending = false; // a program may make another application object
        m_watching = false;
    }

    bool m_watching = false;
    std::vector<std::function<void()>> m_work;
};

} // namespace

namespace {

/// The main thread's mailbox; it goes with the application object.
struct MainMailbox {
    std::mutex mutex;
    Mailbox *mailbox = nullptr;
};

MainMailbox &mainMailbox() {
    static MainMailbox instance;
    return instance;
}

/// Work for the thread pool, which takes it from here: see Mailbox.
struct BackgroundWork {
    std::mutex mutex;
    std::deque<std::function<void()>> work;
};

BackgroundWork &backgroundWork() {
    static auto *instance = new BackgroundWork; // a thread of the pool may outlast static objects
    return *instance;
}

} // namespace

void postToMain(std::function<void()> work) {
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

bool runOnMainAndWait(const std::function<void()> &work) {
    QCoreApplication *application = QCoreApplication::instance();
    if (!application)
        return false;
    if (QThread::currentThread() == application->thread()) {
        work();
        return true;
    }
    struct State {
        bool done = false;
        bool abandoned = false;
    };
    const auto state = std::make_shared<State>();
    EndOfApplication &end = EndOfApplication::instance();
    std::unique_lock lock(end.mutex);
    end.watch();
    if (end.ending)
        return false;
    postToMain([state, &work, &end] {
        {
            const std::lock_guard inner(end.mutex);
            if (state->abandoned)
                return; // the waiter has gone, and `work` with it
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
    {
        const std::lock_guard lock(backgroundWork().mutex);
        backgroundWork().work.push_back(std::move(work));
    }
    QThreadPool::globalInstance()->start([] {
        std::function<void()> next;
        {
            const std::lock_guard lock(backgroundWork().mutex);
            next = std::move(backgroundWork().work.front());
            backgroundWork().work.pop_front();
        }
        next();
    });
}

void whenApplicationEnds(std::function<void()> work) { EndOfApplication::instance().add(std::move(work)); }

} // namespace tx
