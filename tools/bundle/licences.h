// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QMap>
#include <QStringList>

namespace tx::bundling {

/// A text that must go along with copied files.
struct Licence {
    QString package;
    QString text; ///< path of the package's own licence file
};

struct Licences {
    QList<Licence> found;
    QStringList unknown; ///< files of no package, or of one without a licence file
};

/// The licences of files of this machine, by its package manager (dpkg). Thread: any; runs a program. Errors:
/// the package manager cannot be asked. Without one, all files are unknown.
[[nodiscard]] Result<Licences> licencesOf(const QStringList &files);

/// What `dpkg -S` prints, as file -> package without its architecture.
[[nodiscard]] QMap<QString, QString> packagesIn(const QByteArray &output);

} // namespace tx::bundling
