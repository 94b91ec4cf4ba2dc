// SPDX-License-Identifier: MIT
#include "launcher/relauncher.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace tx::launcher {

int relaunch(const std::vector<std::string> &arguments, const Context &context) {
    constexpr size_t argumentCount = 3;
    if (arguments.size() != argumentCount)
        return 1;
    const bool logs = arguments[2] == "debug";
    // A number that is too large must not become that of another process.
    const auto awaited = static_cast<pid_t>(
        std::clamp<long long>(std::strtoll(arguments[0].c_str(), nullptr, 10),
                              std::numeric_limits<pid_t>::min(), std::numeric_limits<pid_t>::max()));
    if (logs)
        context.log("TXUpdateLauncher is waiting for app to terminate...");
    while (context.parent() == awaited)
        context.wait();
    if (logs)
        context.log("TXUpdateLauncher will launch " + arguments[1]);
    context.open(arguments[1]);
    return 0;
}

} // namespace tx::launcher
