// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// Null when the tree at `path` holds nothing but files, folders and links. Else the error names a device,
/// pipe or socket, or an entry that cannot be looked at. Thread: any.
[[nodiscard]] TXError checkForSpecialFiles(const QString &path);

} // namespace tx
