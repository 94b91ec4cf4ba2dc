// SPDX-License-Identifier: MIT
#include "os/sandbox.h"

#include "base/shared.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// Whether a process of this user may create namespaces, which the sandbox needs. Tried in a child that ends
/// at once.
bool namespacesAreAllowed() {
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET) != 0)
            _exit(1);
        // Some systems grant the namespace and nothing in it.
        const int groups = open("/proc/self/setgroups", O_WRONLY | O_CLOEXEC);
        _exit(groups >= 0 && write(groups, "deny", 4) == 4 ? 0 : 1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

TX_SHARED QString reasonAgainstSandbox() {
    if (qEnvironmentVariableIntValue("QTWEBENGINE_DISABLE_SANDBOX") == 1)
        return {};
    if (geteuid() == 0)
        return u"the web engine's sandbox does not run for root"_s;
    if (!namespacesAreAllowed())
        return u"this system gives a user's processes no namespaces, which the web engine's sandbox needs"_s;
    return {};
}

} // namespace tx
