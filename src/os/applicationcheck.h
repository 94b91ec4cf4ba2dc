// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// Why the application in a bundle could not be started on this machine once it is at `placeOfBundle`; null
/// when nothing speaks against it. Its executable is looked at, not run. Thread: any.
[[nodiscard]] QString whyApplicationCannotStart(const QString &bundlePath, const QString &placeOfBundle);

} // namespace tx
