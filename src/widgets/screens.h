// SPDX-License-Identifier: MIT
#pragma once

#include "os/systemfacts.h"

class QSize;
class QWidget;

namespace tx {

/// The screens that the user interface knows; none in a program without windows. Thread: any; it waits for
/// the main thread.
[[nodiscard]] QList<ScreenInfo> screensOfDesktop();

/// `size`, reduced until the window fits its screen together with its frame and the desktop's panels.
/// Thread: main.
[[nodiscard]] QSize contentSizeOnScreen(const QSize &size, const QWidget *window);

} // namespace tx
