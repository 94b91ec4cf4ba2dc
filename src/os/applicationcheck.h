// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// Returns why the application in a bundle could not be started on this machine once it is at
/// `placeOfBundle`; null if no reason is found. Examines the executable without running it. Thread: any.
[[nodiscard]] QString whyApplicationCannotStart(const QString &bundlePath, const QString &placeOfBundle);

} // namespace tx
