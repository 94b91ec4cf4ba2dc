// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

#include <QString>

namespace tx::publishing {

/// The identifier of the application in an archive. Fault: Input, when it has no application at its top.
trust::Outcome<QString> identifierInArchive(const QString &path);

} // namespace tx::publishing
