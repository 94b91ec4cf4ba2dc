// SPDX-License-Identifier: MIT
#include "base/limitedwork.h"

#include "base/queues.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace tx {

/// Shared with the thread, which may outlive everything else.
struct LimitedWork::State {
    std::mutex mutex; ///< protects what follows
    std::condition_variable changed;
    bool isRunning = false;
    bool isAbandoned = false; ///< still running, and no call waits for it any more

    /// Starts the thread. Returns null if the system has no room for another one, otherwise whether the work
    /// has ended.
    static std::shared_ptr<const bool> start(const std::shared_ptr<State> &state, std::function<void()> work);
};

std::shared_ptr<const bool> LimitedWork::State::start(const std::shared_ptr<State> &state,
                                                      std::function<void()> work) {
    auto hasEnded = std::make_shared<bool>(false);
    try {
        std::thread([state, hasEnded, work = std::move(work)]() mutable {
            work();
            work = nullptr; // its captures are destroyed before it counts as ended
            const std::lock_guard lock(state->mutex);
            *hasEnded = true;
            state->isRunning = state->isAbandoned = false;
            state->changed.notify_all();
        }).detach();
    } catch (const std::system_error &) {
        return nullptr;
    }
    return hasEnded;
}

LimitedWork::LimitedWork()
    : m_state(std::make_shared<State>()) {}

LimitedWork::~LimitedWork() = default;

bool LimitedWork::run(std::chrono::milliseconds limit, std::function<void()> work) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    State &state = *m_state;
    bool isInterrupted = false;
    const InterruptAtEnd interrupt([&] {
        const std::lock_guard lock(state.mutex);
        isInterrupted = true;
        state.changed.notify_all();
    });
    std::unique_lock lock(state.mutex); // the thread needs it to end
    (void)state.changed.wait_until(lock, deadline,
                                   [&] { return isInterrupted || state.isAbandoned || !state.isRunning; });
    if (isInterrupted || state.isRunning)
        return false;
    const std::shared_ptr<const bool> hasEnded = State::start(m_state, std::move(work));
    if (!hasEnded)
        return false;
    state.isRunning = true;
    (void)state.changed.wait_until(lock, deadline, [&] { return isInterrupted || *hasEnded; });
    if (!*hasEnded)
        state.isAbandoned = true;
    return *hasEnded;
}

} // namespace tx
