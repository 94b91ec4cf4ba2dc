// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// The build of the application that an update would replace: that of the bundle on disk, which another
/// process may have updated since this one started, or what the host pretends to be
/// (TXUpdateHost::setVersion).
[[nodiscard]] QString installedBuild();

/// An error unless the unpacked application is the build that was announced, by the framework's comparison,
/// and newer than the installed one, by the host's. An archive with another build would take the user back to
/// an old one, or be installed again and again. Thread: main.
[[nodiscard]] TXError checkUnpackedBuild(const QString &announced, const QString &application);

} // namespace tx
