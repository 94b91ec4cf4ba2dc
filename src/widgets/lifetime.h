// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

class QObject;
class QWidget;

namespace tx {

/// Runs `work` once when the application quits (QCoreApplication::aboutToQuit, or after all slots of that
/// when one of them makes a window), at the latest when the application object is destroyed, and not at all
/// if `context` is destroyed first. Windows and web pages do not survive the application object: whatever
/// holds one lets go of it here. Thread: main.
void whenApplicationQuits(QObject *context, std::function<void()> work);

/// Deletes a widget. When the application object has gone, the widget stays where it is: its destructor would
/// use what went with the application, and the process is about to end. For hosts that keep a window too
/// long. Thread: main.
void deleteWidget(QWidget *widget);

/// Keeps an object until the event loop's next turn, at the latest until the application quits: for an object
/// that may be a part of what runs now. Thread: main.
void releaseLater(std::shared_ptr<void> object);

} // namespace tx
