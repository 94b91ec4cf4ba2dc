// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

#include <chrono>
#include <deque>
#include <functional>

namespace tx {

/// Takes work for the thread that it lives on, which must run an event loop. All that passes between threads
/// passes through a mutex of its own, not through Qt's own, of which ThreadSanitizer knows nothing.
/// Destroyed on its thread, or when that has ended; work that is left is dropped with its captures.
class Mailbox final : public QObject {
public:
    /// Lives on `thread`. Thread: any.
    explicit Mailbox(QThread *thread);
    ~Mailbox() override;
    Q_DISABLE_COPY_MOVE(Mailbox)

    /// Runs `work` on the mailbox's thread, in order. Thread: any.
    void post(std::function<void()> work);
    /// As post, and waits until it has run. Thread: any but the mailbox's own.
    void postAndWait(const std::function<void()> &work);
    /// The same; false when it has not run within `limit`. It may run later then, so it must own what it
    /// writes to.
    [[nodiscard]] bool postAndWaitFor(std::chrono::milliseconds limit, std::function<void()> work);

protected:
    void customEvent(QEvent *event) override;

private:
    std::deque<std::function<void()>> m_work;
};

} // namespace tx
