// SPDX-License-Identifier: MIT
#pragma once

#include "platform/systemfacts.h"

namespace tx {

/// The screens that the user interface knows; none in a program without windows. Thread: any; it waits for
/// the main thread.
[[nodiscard]] QList<ScreenInfo> screensOfDesktop();

} // namespace tx
