// SPDX-License-Identifier: MIT
#include "os/alert.h"

#include "base/shared.h"

#include <TarvixUpdate/TXLog.h>

using namespace Qt::StringLiterals;

namespace tx {

TX_SHARED int presentAlertInLog(const Alert &alert) {
    TXLog(TXLogLevelFailure, u"%@ %@"_s, {alert.message, alert.informative});
    return alert.answerWithoutWindow;
}

} // namespace tx
