// SPDX-License-Identifier: MIT
#pragma once

#include "os/tasks.h"

#include <QString>

namespace tx {

/// The programs that open a bundle after a process has ended: how the host relaunches itself, and how the
/// mover opens the moved application. Each request starts a program that outlives this process. Thread: any.

/// A shell that runs `command` with the framework's tools first in PATH; see environmentWithFrameworkTools().
[[nodiscard]] TaskRequest outlivingShell(const QString &command, const QString &resources = {});

/// The shell command that opens the bundle after the process has ended.
[[nodiscard]] QString relaunchCommand(qint64 processIdentifier, const QString &bundlePath);

/// A shell that runs this command. `resources`: as for outlivingShell(). `variables`: added to its
/// environment.
[[nodiscard]] TaskRequest relaunchByShell(qint64 processIdentifier, const QString &bundlePath,
                                          const QString &resources = {}, const QStringList &variables = {});

/// The relaunch tool (tools/launcher), which must be a child of that process. It logs its steps if this
/// process does. `variables`: added to its environment.
[[nodiscard]] TaskRequest relaunchByTool(qint64 processIdentifier, const QString &bundlePath,
                                         const QStringList &variables = {});

} // namespace tx
