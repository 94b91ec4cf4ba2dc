// SPDX-License-Identifier: MIT
#include "bundle/programs.h"

#include "bundle/problem.h"
#include "os/services.h"
#include "os/tasks.h"

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tx::bundling {

Result<QByteArray> outputOfProgram(const QString &program, const QStringList &arguments,
                                   const QString &package) {
    constexpr std::chrono::minutes limit{2};
    const QString shown = (QStringList{program} + arguments).join(u' ').left(300);
    auto started = services().tasks->start({.program = program,
                                            .arguments = arguments,
                                            .readsOutput = true,
                                            .keepsErrors = true,
                                            .ownSession = true});
    if (!started && started.error().domain() == TXPOSIXErrorDomain && started.error().code() == ENOENT)
        return problem(u"%1 is not installed"_s.arg(program), {},
                       u"Install the package that brings it, on Debian: apt install %1"_s.arg(package));
    if (!started)
        return problem(u"%1 cannot be started"_s.arg(program), started.error().localizedDescription());
    Task &task = **started;
    QByteArray output;
    for (;;) {
        const std::optional<QByteArray> some = task.readWithin(limit);
        if (!some) {
            task.kill();
            return problem(u"%1 was ended: it wrote nothing for two minutes"_s.arg(shown));
        }
        if (some->isEmpty())
            break;
        output += *some;
    }
    const std::optional<int> status = task.waitWithin(limit);
    if (!status)
        task.kill();
    if (status != 0)
        return problem(u"%1 failed"_s.arg(shown), task.errorText());
    return output;
}

} // namespace tx::bundling
