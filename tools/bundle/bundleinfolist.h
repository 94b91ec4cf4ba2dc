// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

#include <QDateTime>

namespace tx::bundling {

/// Makes the content of the bundle's Info.plist, dated `now`. Errors: a value that applications could not
/// use, keys that cannot be read, an additional property list that sets a key which the command sets itself.
[[nodiscard]] Result<QVariantMap> infoListOf(const Wishes &wishes, const QDateTime &now);

} // namespace tx::bundling
