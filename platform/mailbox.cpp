// SPDX-License-Identifier: MIT
#include "platform/mailbox.h"

#include <QCoreApplication>
#include <QEvent>

#include <future>

namespace tx {

namespace {

QEvent::Type delivery() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

} // namespace

Mailbox::Mailbox(QThread *thread) { moveToThread(thread); }

Mailbox::~Mailbox() = default;

void Mailbox::post(std::function<void()> work) {
    {
        const std::lock_guard lock(m_mutex);
        m_work.push_back(std::move(work));
    }
    // One event for each: what other events are posted in between keeps its turn.
    QCoreApplication::postEvent(this, new QEvent(delivery()));
}

void Mailbox::postAndWait(const std::function<void()> &work) {
    std::promise<void> done;
    const std::future<void> waited = done.get_future();
    post([&] {
        work();
        done.set_value();
    });
    waited.wait();
}

bool Mailbox::event(QEvent *event) {
    if (event->type() != delivery())
        return QObject::event(event);
    std::function<void()> work;
    {
        const std::lock_guard lock(m_mutex);
        work = std::move(m_work.front());
        m_work.pop_front();
    }
    work();
    return true;
}

} // namespace tx
