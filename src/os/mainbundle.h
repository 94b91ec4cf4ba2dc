// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXBundle.h>

namespace tx {

/// The path of the running executable as it was when the framework was loaded: it stays right when another
/// process replaces the bundle.
[[nodiscard]] QString executablePathAtStart();

/// Returns the bundle that contains `executable`: the `.app` directory around Contents/MacOS, Contents/Linux
/// or Contents/bin. Otherwise the nearest folder with an Info.plist, otherwise the executable's own folder.
[[nodiscard]] QString bundlePathForExecutable(const QString &executable);

/// Makes TXBundle::mainBundle() answer `bundle`: for a program that acts for another application. A null
/// bundle undoes it. Call it before the framework is used.
void setMainBundle(const TXBundle &bundle);

} // namespace tx
