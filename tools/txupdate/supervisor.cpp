// SPDX-License-Identifier: MIT
#include "txupdate/supervisor.h"

#include "posix/installerstatus.h"
#include "txupdate/commands.h"

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
/// Added to the number of the signal that ended a process.
constexpr int bySignal = 128;

int statusOf(pid_t process) {
    int status = 0;
    while (waitpid(process, &status, 0) < 0) {
        if (errno != EINTR)
            return ExitFailed;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : bySignal + WTERMSIG(status);
}

/// The result for the application, by the installer's exit status.
QString outcomeOf(int status) {
    switch (status) {
    case installer::StatusUsage:
        return u"the installer was started wrongly; the application is unchanged"_s;
    case installer::StatusCannotStage:
        return u"the new version could not be put beside the application, which is unchanged"_s;
    case installer::StatusCannotSwap:
        return u"the application could not be exchanged for the new version and is unchanged"_s;
    case installer::StatusTryLater:
        return u"the application is in use or is being installed by somebody else; it is unchanged, try again later"_s;
    case installer::StatusForbidden:
        return u"the installer could have been changed by others, so it does not run with an administrator's "
               u"rights; the "
               "application is unchanged"_s;
    case installer::StatusNoRights:
        return u"the installer could not change its rights and ended; the application is complete, in its "
               u"old or its new "
               "version: run this command again"_s;
    case installer::StatusCannotOpen:
        return u"the new version is installed, but it could not be started"_s;
    default:
        return u"the installer ended before it was done; the application is complete, in its old or its new "
               "version: run this command again"_s;
    }
}

} // namespace

std::optional<int> superviseInstallation() {
    int ends[2];
    // The installer outlives the process that starts it. As its subreaper, this process can wait for it.
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
    if (status > bySignal)
        return ExitFailed;
    if (status != ExitDone || installer == 0)
        return status;
    const int installed = statusOf(installer);
    if (installed != 0) {
        complain(u"%1 (installer status %2)"_s.arg(outcomeOf(installed)).arg(installed));
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
