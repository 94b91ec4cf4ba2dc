// SPDX-License-Identifier: MIT
#pragma once

#include "publish/faults.h"

#include <QString>

namespace tx::publishing {

/// Returns the identifier of the application in an archive. Fault: Input, if there is no application at the
/// top of the archive.
Outcome<QString> identifierInArchive(const QString &path);

} // namespace tx::publishing
