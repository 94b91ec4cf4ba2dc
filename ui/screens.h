// SPDX-License-Identifier: MIT
#pragma once

#include "platform/systemfacts.h"

class QSize;
class QWidget;

namespace tx {

/// The screens that the user interface knows; none in a program without windows. Thread: any; it waits for
/// the main thread.
[[nodiscard]] QList<ScreenInfo> screensOfDesktop();

/// The part of `size` that the content of this window can have on its screen, beside what the desktop puts
/// around it. Thread: main.
[[nodiscard]] QSize contentSizeOnScreen(const QSize &size, const QWidget *window);

} // namespace tx
