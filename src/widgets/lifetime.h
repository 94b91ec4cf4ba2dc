// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

class QObject;
class QWidget;

namespace tx {

/// Runs `work` once when the application quits: on QCoreApplication::aboutToQuit, or after all slots of that
/// signal if one of them creates a window, and at the latest when the application object is destroyed. Does
/// not run it if `context` is destroyed first. Windows and web pages must not outlive the application object,
/// so `work` must release them. Thread: main.
void whenApplicationQuits(QObject *context, std::function<void()> work);

/// Deletes a widget. If the application object has already been destroyed, the widget is leaked: its
/// destructor would use destroyed objects, and the process is about to end. For hosts that keep a window too
/// long. Thread: main.
void deleteWidget(QWidget *widget);

/// Keeps an object until the event loop's next turn, at the latest until the application quits: for an object
/// that may be a part of what runs now. Thread: main.
void releaseLater(std::shared_ptr<void> object);

} // namespace tx
