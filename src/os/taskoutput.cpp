// SPDX-License-Identifier: MIT
#include "os/taskoutput.h"

#include "base/queues.h"
#include "os/services.h"

namespace tx {

std::optional<QByteArray> outputOf(TaskRequest request, const TaskOutputLimits &limits) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const steady_clock::time_point deadline = steady_clock::now() + limits.time;
    const auto left = [&] {
        return std::max(milliseconds(0),
                        std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now()));
    };
    request.readsOutput = true;
    request.ownSession = true; // so that it is ended with what it started
    auto started = services().tasks->start(request);
    if (!started)
        return std::nullopt;
    Task &task = **started;
    const InterruptAtEnd interrupt([&task] { task.kill(); });
    QByteArray output;
    for (;;) {
        const std::optional<QByteArray> some = task.readWithin(left());
        if (!some || output.size() + some->size() > limits.size) {
            task.kill();
            return std::nullopt;
        }
        if (some->isEmpty())
            break;
        output += *some;
    }
    const std::optional<int> status = task.waitWithin(left());
    if (!status)
        task.kill();
    return status == 0 ? std::optional(output) : std::nullopt;
}

} // namespace tx
