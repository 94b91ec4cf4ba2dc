// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

namespace tx {

/// The bits that this process takes from the modes of new files (umask), without changing them for a moment
/// as the system's own call does. Absent where the system does not tell. Thread: any.
[[nodiscard]] std::optional<unsigned> fileCreationMask();

} // namespace tx
