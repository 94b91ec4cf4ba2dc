// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The family of a processor by its name, such as "i7" or "M2 Max"; "Unknown" for others. Thread: any.
[[nodiscard]] QString cpuFamily(const QString &name);

} // namespace tx
