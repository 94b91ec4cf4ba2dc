// SPDX-License-Identifier: MIT
#pragma once

class QWidget;

namespace tx {

/// Shows a window as the application's modal window and serves events until its session is stopped, the
/// window goes away or the application quits. The code it was stopped with, else 0. The main queue is served
/// meanwhile. Thread: main.
int runModalForWindow(QWidget *window);

/// Ends the session of this window; nothing when it has none.
void stopModalOfWindow(const QWidget *window, int code);

[[nodiscard]] bool isModalWindow(const QWidget *window);

} // namespace tx
