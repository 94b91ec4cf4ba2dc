// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

namespace tx::bundling {

/// Looks at a finished bundle as it is on disk, and lists everything for which it must not reach users:
/// libraries that the loader would not find in it, files for another machine, paths of the build machine, a
/// missing execute bit, links out of it, an Info.plist that says something else. Empty: nothing.
[[nodiscard]] QStringList problemsOf(const QString &bundle, const Plan &plan, const QString &identifier);

/// The identifier of a bundle that users have; null when there is no bundle.
[[nodiscard]] QString identifierOf(const QString &bundle);

} // namespace tx::bundling
