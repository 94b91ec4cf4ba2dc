// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

#include <QDateTime>

namespace tx::bundling {

/// The content of the bundle's Info.plist, made at `now`. Errors: a value that no application could use, keys
/// that cannot be read, a file with more keys that sets one of those that the command sets itself.
[[nodiscard]] Result<QVariantMap> infoListOf(const Wishes &wishes, const QDateTime &now);

} // namespace tx::bundling
