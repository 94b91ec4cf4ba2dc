// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXQuitReply.h>
#include <TarvixUpdate/TXUpdate.h>

#include <atomic>

struct TXQuitReply::Answer {
    /// What the answer is handed to: a permission to hold while the application may be ended, or null for a
    /// refusal. Null once it has been called.
    std::function<void(const std::shared_ptr<void> &permission)> done;

    ~Answer();
    void give(const std::shared_ptr<void> &permission);
};

namespace tx {

/// Puts the question to the host. Set by the updater, which knows the delegate; while it is null, the
/// application is asked. Called on the main thread.
using QuitQuestion = void (*)(TXUpdate &update, const TXQuitReply &reply);
std::atomic<QuitQuestion> &quitQuestion();

} // namespace tx
