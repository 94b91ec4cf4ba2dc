// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

#include <chrono>
#include <deque>
#include <functional>

namespace tx {

/// Runs functions on the thread that it belongs to, which must run an event loop. All data that passes
/// between threads is protected by a mutex of this class, because ThreadSanitizer does not understand Qt's
/// own. Destroy it on its thread, or after that thread has ended. Functions that have not run by then are
/// destroyed with their captures.
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
    /// As above, but returns false if the work has not run within `limit`. It may still run later, so it must
    /// own what it writes to.
    [[nodiscard]] bool postAndWaitFor(std::chrono::milliseconds limit, std::function<void()> work);

protected:
    void customEvent(QEvent *event) override;

private:
    std::deque<std::function<void()>> m_work;
};

} // namespace tx
