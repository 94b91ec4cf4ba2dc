// SPDX-License-Identifier: MIT
#pragma once

#include "platform/alert.h"

namespace tx {

/// Shows an alert in a window of its own when the application has windows at all, else in the log. Thread:
/// main.
int presentAlertInWindow(const Alert &alert);

} // namespace tx
