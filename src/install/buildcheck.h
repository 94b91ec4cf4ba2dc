// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// The build of the application that an update would replace. It is read from the bundle on disk, because
/// another process may have updated the bundle since this one started. A build set with
/// TXUpdateHost::setVersion() takes precedence.
[[nodiscard]] QString installedBuild();

/// An error unless the unpacked application is the build that was announced, by the framework's comparison,
/// and newer than the installed one, by the host's. An archive with another build would take the user back to
/// an old one, or be installed again and again. Thread: main.
[[nodiscard]] TXError checkUnpackedBuild(const QString &announced, const QString &application);

} // namespace tx
