// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXQuitReply.h>
#include <TarvixUpdate/TXUpdate.h>

#include <atomic>

/// The state that all copies of a TXQuitReply share.
struct TXQuitReplyPrivate {
    /// Receives the answer: a permission, which must be held as long as the application may be ended, or null
    /// for a refusal. Null after it has been called.
    std::function<void(const std::shared_ptr<void> &permission)> done;

    explicit TXQuitReplyPrivate(std::function<void(const std::shared_ptr<void> &permission)> whenAnswered);
    ~TXQuitReplyPrivate();
    Q_DISABLE_COPY_MOVE(TXQuitReplyPrivate)
    /// Makes a reply that passes its answer to `whenAnswered`.
    static TXQuitReply make(std::function<void(const std::shared_ptr<void> &permission)> whenAnswered);
    void give(const std::shared_ptr<void> &permission);
};

namespace tx {

/// Puts the question to the host. Set by the updater, which knows the delegate; while it is null, the
/// application is asked. Called on the main thread.
using QuitQuestion = void (*)(TXUpdate &update, const TXQuitReply &reply);
std::atomic<QuitQuestion> &quitQuestion();

} // namespace tx
