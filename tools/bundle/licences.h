// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QMap>
#include <QStringList>

namespace tx::bundling {

/// A licence text that must accompany copied files.
struct Licence {
    QString package;
    QString text; ///< path of the package's licence file
};

struct Licences {
    QList<Licence> found;
    QStringList unknown; ///< files without a package, or whose package has no licence file
};

/// Finds the licences of files on this machine through its package manager (dpkg). Thread: any; runs a
/// program and waits for it. Error: the package manager fails. On a system without one, all files are
/// unknown.
[[nodiscard]] Result<Licences> licencesOf(const QStringList &files);

/// Parses the output of `dpkg -S`. Maps each file to its package, without the architecture.
[[nodiscard]] QMap<QString, QString> packagesIn(const QByteArray &output);

} // namespace tx::bundling
