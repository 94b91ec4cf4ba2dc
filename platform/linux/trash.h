// SPDX-License-Identifier: MIT
#pragma once

#include "platform/result.h"

#include <QString>

namespace tx {

/// Moves an entry of any kind into the Trash that the desktops share: the one of the home, or the one of the
/// entry's own volume. Never deletes, and leaves nothing behind when it fails. Where a volume takes no Trash,
/// the entry is copied into the one of the home. Thread: any. The new path.
Result<QString> moveToTrash(const QString &path);

} // namespace tx
