// SPDX-License-Identifier: MIT
#include "install/quitreply.h"

#include "base/queues.h"
#include "os/services.h"

#include <utility>

TXQuitReplyPrivate::TXQuitReplyPrivate(
    std::function<void(const std::shared_ptr<void> &permission)> whenAnswered)
    : done(std::move(whenAnswered)) {}

TXQuitReply
TXQuitReplyPrivate::make(std::function<void(const std::shared_ptr<void> &permission)> whenAnswered) {
    return TXQuitReply(std::make_shared<TXQuitReplyPrivate>(std::move(whenAnswered)));
}

TXQuitReplyPrivate::~TXQuitReplyPrivate() {
    if (done)
        tx::postToMain([refused = std::move(done)] { refused(nullptr); });
}

void TXQuitReplyPrivate::give(const std::shared_ptr<void> &permission) {
    if (const auto call = std::exchange(done, nullptr))
        call(permission);
}

TXQuitReply::TXQuitReply(std::shared_ptr<TXQuitReplyPrivate> answer)
    : d(std::move(answer)) {}

void TXQuitReply::quit() const { d->give(std::make_shared<bool>(true)); }
void TXQuitReply::refuse() const { d->give(nullptr); }

void TXQuitReply::askApplication() const {
    if (isAnswered())
        return;
    // Windows may run their own event loops, in which the host could answer again. This answer counts.
    const std::shared_ptr<TXQuitReplyPrivate> answer = d;
    const auto call = std::exchange(answer->done, nullptr);
    call(tx::services().requestQuit());
}

bool TXQuitReply::isAnswered() const { return !d->done; }

namespace tx {

std::atomic<QuitQuestion> &quitQuestion() {
    static std::atomic<QuitQuestion> question{nullptr};
    return question;
}

} // namespace tx
