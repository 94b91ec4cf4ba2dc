// SPDX-License-Identifier: MIT
#pragma once

class QWidget;

namespace tx {

/// Shows a window as application-modal and processes events until its session is stopped, the window is
/// destroyed or the application quits. Returns the code that stopped the session, otherwise 0. The main queue
/// is processed meanwhile. Thread: main.
int runModalForWindow(QWidget *window);

/// Ends the session of this window; nothing when it has none.
void stopModalOfWindow(const QWidget *window, int code);

[[nodiscard]] bool isModalWindow(const QWidget *window);

} // namespace tx
