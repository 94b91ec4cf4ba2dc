// SPDX-License-Identifier: MIT
// TXUpdateLauncher PID BUNDLE debug|"": waits until its parent, the process PID, has gone and opens BUNDLE.
// Exit status: 1 for a wrong number of arguments, else 0.

#include "platform/linux/openbundle.h"

#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 4)
        return 1;
    const bool logs = std::strcmp(argv[3], "debug") == 0;
    const auto parent = static_cast<pid_t>(std::strtol(argv[1], nullptr, 10));
    if (logs) {
        openlog("TXUpdateLauncher", LOG_PID, LOG_USER);
        syslog(LOG_NOTICE, "TXUpdateLauncher is waiting for app to terminate...");
    }
    while (getppid() == parent)
        sleep(1);
    if (logs)
        syslog(LOG_NOTICE, "TXUpdateLauncher will launch %s", argv[2]);
    (void)tx::openBundle(argv[2]);
    return 0;
}
