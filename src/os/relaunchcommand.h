// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The shell command that opens the bundle after the process has ended. Thread: any.
[[nodiscard]] QString relaunchCommand(qint64 processIdentifier, const QString &bundlePath);

} // namespace tx
