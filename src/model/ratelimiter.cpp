// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXRateLimiter.h>

#include "os/services.h"

void __TXUpdateAllowOnceEvery(const std::function<void()> &work, double *lastTime, double interval) {
    const double now = tx::services().secondsSinceReferenceDate();
    // A clock that was set back must not silence the caller until it has caught up.
    if (now - *lastTime > interval || now < *lastTime) {
        *lastTime = now;
        work();
    }
}
