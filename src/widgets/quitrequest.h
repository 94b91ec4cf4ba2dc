// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace tx {

/// Asks the application whether it may end, in the way of the desktop's Quit: QEvent::Quit goes to the
/// application object, and so a close event to each of its windows. The application does not end by it. The
/// framework's update panels are hidden meanwhile and come back when the result goes.
///
/// Null when refused. While the result is held, requests to quit have no effect. When it goes with no window
/// left, the application ends as it does when its last window is closed. Thread: main.
std::shared_ptr<void> requestQuit();

} // namespace tx
