// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

namespace tx::bundling {

/// Checks a finished bundle on disk and lists every reason not to ship it: libraries that the loader would
/// not find inside it, files for another architecture, paths of the build machine, missing execute
/// permissions, links that lead out of it, an Info.plist that contradicts it. Empty if the bundle is good.
[[nodiscard]] QStringList problemsOf(const QString &bundle, const Plan &plan, const QString &identifier);

/// Returns CFBundleIdentifier of a published bundle, or a null string if there is no bundle.
[[nodiscard]] QString identifierOf(const QString &bundle);

} // namespace tx::bundling
