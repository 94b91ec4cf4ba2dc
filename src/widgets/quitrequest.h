// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace tx {

/// Asks the application whether it may quit, as the desktop's Quit does: sends QEvent::Quit to the
/// application object, and thus a close event to each of its windows. This does not end the application. The
/// framework's update panels are hidden during the question, and shown again when the result is destroyed.
///
/// Returns null if the application refuses. While the result exists, requests to quit have no effect. If no
/// window is left when it is destroyed, the application ends as it does when its last window is closed.
/// Thread: main.
std::shared_ptr<void> requestQuit();

} // namespace tx
