// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QStringList>

namespace tx::bundling {

/// Runs a program on the publisher's machine through Services::tasks and returns its standard output. If the
/// program is missing, the error tells the publisher to install `package`. Errors: the program is missing,
/// fails, or takes longer than two minutes. Thread: any; blocks.
[[nodiscard]] Result<QByteArray> outputOfProgram(const QString &program, const QStringList &arguments,
                                                 const QString &package);

} // namespace tx::bundling
