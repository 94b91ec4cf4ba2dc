// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// Returns null if the tree at `path` contains only files, folders and links. Otherwise the error names a
/// device, pipe or socket, or an entry that cannot be examined. Thread: any.
[[nodiscard]] TXError checkForSpecialFiles(const QString &path);

} // namespace tx
