// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QHash>

namespace tx {

/// Reads a `.strings` table: lines `"key" = "value";` and comments, in UTF-8 or in UTF-16 with a byte order
/// mark, or a property list with a dictionary. Errors: domain "TXUpdater", with the line.
Result<QHash<QString, QString>> readStringsTable(const QByteArray &data);

} // namespace tx
