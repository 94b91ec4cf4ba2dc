// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QStringList>

namespace tx::bundling {

/// Runs a program of the publisher's machine through Services::tasks and returns what it writes to its
/// standard output. `package`: who does not have it is told to install this. Errors: it is missing, fails, or
/// takes longer than two minutes. Thread: any; blocks.
[[nodiscard]] Result<QByteArray> outputOfProgram(const QString &program, const QStringList &arguments,
                                                 const QString &package);

} // namespace tx::bundling
