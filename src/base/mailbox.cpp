// SPDX-License-Identifier: MIT
#include "base/mailbox.h"

#include <QCoreApplication>
#include <QEvent>

#include <condition_variable>
#include <memory>
#include <mutex>

namespace tx {

namespace {

/// One for all mailboxes, because it also protects handing the mailbox object to its thread.
std::mutex &mailboxes() {
    static auto *mutex = new std::mutex; // a thread may outlast static objects
    return *mutex;
}

} // namespace

Mailbox::Mailbox(QThread *thread) { moveToThread(thread); }

Mailbox::~Mailbox() = default;

void Mailbox::post(std::function<void()> work) {
    {
        const std::lock_guard lock(mailboxes());
        m_work.push_back(std::move(work));
    }
    // One event for each entry, so that events posted in between keep their order.
    QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

void Mailbox::postAndWait(const std::function<void()> &work) {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    post([&] {
        work();
        const std::lock_guard lock(mutex);
        done = true;
        changed.notify_one(); // under the lock, because the waiter destroys all of this
    });
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return done; });
}

bool Mailbox::postAndWaitFor(std::chrono::milliseconds limit, std::function<void()> work) {
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool done = false;
    };
    const auto state = std::make_shared<State>();
    post([state, work = std::move(work)] {
        work();
        const std::lock_guard lock(state->mutex);
        state->done = true;
        state->changed.notify_one();
    });
    std::unique_lock lock(state->mutex);
    return state->changed.wait_for(lock, limit, [&] { return state->done; });
}

void Mailbox::customEvent(QEvent *) {
    std::function<void()> work;
    {
        const std::lock_guard lock(mailboxes());
        work = std::move(m_work.front());
        m_work.pop_front();
    }
    work();
}

} // namespace tx
