// SPDX-License-Identifier: MIT
#pragma once

#include "installer/installer.h"

namespace tx::installer {

/// Whether the contents of the host bundle are replaced instead of the bundle: this process may not write to
/// the folder around it, but the bundle is this user's. Then the installation takes place inside the bundle:
/// lock, staged copy and backup are in it beside its "Contents". Says in the log when it cannot be done so.
[[nodiscard]] bool replacesContents(const Arguments &arguments, const Context &context);

/// The folder that can be read in the place of `bundle`: what an interrupted installation of its contents
/// left of them, or the bundle itself.
[[nodiscard]] std::string standingContents(const std::string &bundle);

/// The same installation for the two "Contents" folders instead of the bundles.
[[nodiscard]] Arguments contentsArguments(const Arguments &arguments);

/// The context for this installation: at the end it opens the bundle, after removing the rest of the new
/// application.
[[nodiscard]] Context contentsContext(const Arguments &arguments, const Context &context);

} // namespace tx::installer
