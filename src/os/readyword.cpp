// SPDX-License-Identifier: MIT
#include "os/readyword.h"

#include "os/tasks.h"
#include "posix/installerstatus.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Longer than any reason; the rest is not read.
constexpr qsizetype longestAnswer = 4096;
/// How long a tool may take to end after it was terminated or has closed its output.
constexpr std::chrono::milliseconds timeToGo(1000);

std::optional<int> end(Task &tool) {
    if (const std::optional<int> status = tool.waitWithin(std::chrono::milliseconds(0)))
        return status;
    tool.kill();
    return tool.waitWithin(timeToGo);
}

} // namespace

QString waitForReadyWord(Task &tool, std::chrono::milliseconds limit) {
    using std::chrono::milliseconds;
    using std::chrono::steady_clock;
    const steady_clock::time_point deadline = steady_clock::now() + limit;
    QByteArray answer;
    while (answer.size() < longestAnswer) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        const std::optional<QByteArray> some = tool.readWithin(std::max(milliseconds(0), left));
        if (!some) {
            (void)end(tool);
            const QString said = QString::fromLocal8Bit(answer).trimmed();
            return u"It did not say within %1 seconds that it is ready."_s.arg(
                       QString::number(static_cast<double>(limit.count()) / 1000)) +
                   (said.isEmpty() ? QString() : u' ' + said);
        }
        if (some->isEmpty())
            break;
        answer += *some;
        if (answer.startsWith(installer::readyLine))
            return {};
    }
    std::optional<int> status = tool.waitWithin(timeToGo);
    if (!status)
        status = end(tool);
    const QString said = QString::fromLocal8Bit(answer.left(longestAnswer)).trimmed();
    if (!said.isEmpty())
        return said;
    return status ? u"It ended with status %1 and gave no reason."_s.arg(*status)
                  : u"It closed its output and gave no reason."_s;
}

} // namespace tx
