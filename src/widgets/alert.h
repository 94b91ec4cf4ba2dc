// SPDX-License-Identifier: MIT
#pragma once

#include "os/alert.h"

#include <TarvixUpdate/TXError.h>

namespace tx {

/// Shows an alert in a separate window if the application can show windows, otherwise logs it. Thread: main.
int presentAlertInWindow(const Alert &alert);
/// Shows it as a sheet of `parent`.
void presentAlertAsSheet(const Alert &alert, QWidget *parent, const std::function<void(int)> &handler);
/// Tells the user of an error, modally.
void presentError(const TXError &error);
/// What presentError() calls; an application of the framework's own tests replaces it to see the whole error.
using ErrorPresenter = std::function<void(const TXError &error)>;
ErrorPresenter &errorPresenter();

} // namespace tx
