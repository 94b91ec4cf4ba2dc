// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The command by which the shell opens the bundle once the process has gone. Thread: any.
[[nodiscard]] QString relaunchCommand(qint64 processIdentifier, const QString &bundlePath);

} // namespace tx
