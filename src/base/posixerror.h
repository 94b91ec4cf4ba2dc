// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

namespace tx {

/// The error for the errno value `number`: "<action> <path>: <the system's text>".
TXError posixError(int number, const QString &action, const QString &path);

} // namespace tx
