// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <optional>

namespace tx::cli {

/// Splits this process: the child returns and does the work, the parent waits for it and for the installer
/// that it started, and returns the exit status. Call it before anything starts threads.
[[nodiscard]] std::optional<int> superviseInstallation();

/// Tells the parent which process is the installer. Thread: main.
void reportInstaller(qint64 processIdentifier);

} // namespace tx::cli
