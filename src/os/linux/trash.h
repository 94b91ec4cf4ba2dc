// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QString>

namespace tx {

/// Moves an entry of any kind into the Trash that the desktops share: the one of the home, or the one of the
/// entry's own volume. Never deletes, and leaves nothing behind when it fails. Where a volume takes no Trash,
/// the entry is copied into the one of the home. `original`: the path in the same folder that the entry gets
/// its name in the Trash from, and to which it can be restored. Thread: any. The new path; an error whose
/// user info has "trashed" names a complete copy in the Trash, of which the original could not all be
/// removed.
Result<QString> moveToTrash(const QString &path, const QString &original);

} // namespace tx
