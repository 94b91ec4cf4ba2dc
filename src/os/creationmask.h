// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

namespace tx {

/// Returns the permission bits that this process removes from new files (umask). Unlike umask(), does not
/// change them temporarily. Absent if the system does not provide them. Thread: any.
[[nodiscard]] std::optional<unsigned> fileCreationMask();

} // namespace tx
