// SPDX-License-Identifier: MIT
// TXUpdateLauncher PID BUNDLE debug|"": waits until its parent, the process PID, has ended, and opens BUNDLE.
// Exit status: 1 for a wrong number of arguments, otherwise 0.

#include "launcher/relauncher.h"

#include "posix/handover.h"
#include "posix/openbundle.h"

#include <syslog.h>
#include <unistd.h>

int main(int argc, char **argv) {
    // In the environment, because the number of arguments is fixed.
    tx::OpenOptions options;
    options.handover = tx::takeHandover();
    tx::launcher::Context context;
    context.parent = getppid;
    context.wait = [] { sleep(1); };
    context.open = [&options](const std::string &bundle) { (void)tx::openBundle(bundle, options); };
    context.log = [](const std::string &line) {
        openlog("TXUpdateLauncher", LOG_PID, LOG_USER);
        syslog(LOG_NOTICE, "%s", line.c_str());
    };
    return tx::launcher::relaunch(std::vector<std::string>(argv + 1, argv + argc), context);
}
