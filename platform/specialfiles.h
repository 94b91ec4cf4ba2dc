// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The first device, pipe or socket below `path`; null when there is none. Thread: any.
[[nodiscard]] QString firstSpecialFile(const QString &path);

} // namespace tx
