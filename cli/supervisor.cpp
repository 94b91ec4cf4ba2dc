// SPDX-License-Identifier: MIT
#include "cli/supervisor.h"

#include "cli/commands.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

int reportPipe = -1;

int statusOf(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR)
            return ExitFailed;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : ExitFailed;
}

} // namespace

std::optional<int> superviseInstallation() {
    int ends[2];
    // The installer outlives the process that starts it; as its foster parent this one can wait for it.
    if (pipe2(ends, O_CLOEXEC) != 0 || prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        return std::nullopt;
    std::fflush(nullptr);
    const pid_t worker = fork();
    if (worker <= 0) {
        close(ends[0]);
        reportPipe = ends[1];
        return std::nullopt;
    }
    close(ends[1]);
    pid_t installer = 0;
    pid_t reported = 0;
    while (read(ends[0], &reported, sizeof reported) == static_cast<ssize_t>(sizeof reported))
        installer = reported;
    close(ends[0]);
    const int status = statusOf(worker);
    if (status != ExitDone || installer == 0)
        return status;
    const int installed = statusOf(installer);
    if (installed != 0) {
        complain(u"the installer failed with status %1; the application is unchanged"_s.arg(installed));
        return ExitFailed;
    }
    std::puts("Installed.");
    return ExitDone;
}

void reportInstaller(qint64 processIdentifier) {
    const auto process = static_cast<pid_t>(processIdentifier);
    if (reportPipe >= 0 && write(reportPipe, &process, sizeof process) < 0)
        complain(u"the installer's process cannot be reported"_s);
}

} // namespace tx::cli
