// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArrayList>
#include <QStringList>

namespace tx::bundling {

/// A QML module that is imported, directly or by another one.
struct QmlModule {
    QString name;   ///< such as QtQuick.Controls
    QString folder; ///< where it is
    QString place;  ///< its way below the folder of QML modules
};

struct QmlImports {
    QList<QmlModule> modules;
    QStringList missing; ///< names of modules that are in none of the folders
};

/// The names of modules that the QML in a program imports: QML that is compiled in as a resource, as it is or
/// compressed. Errors: the file cannot be read.
[[nodiscard]] Result<QStringList> importsInside(const QString &program);

/// Asks Qt's qmlimportscanner for the modules that these names, and the QML files below `folders`, import.
/// `scanner`: its path; `qml`: where Qt's modules are. Errors: it cannot be run, or its answer cannot be
/// read.
[[nodiscard]] Result<QmlImports> qmlImports(const QString &scanner, const QString &qml,
                                            const QStringList &names, const QStringList &folders);

/// The files of a module, below its folder: all but those of other modules and what only tools read.
[[nodiscard]] QStringList filesOf(const QmlModule &module);

} // namespace tx::bundling
