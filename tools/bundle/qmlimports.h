// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArrayList>
#include <QStringList>

namespace tx::bundling {

/// A QML module that is imported directly or by another module.
struct QmlModule {
    QString name;   ///< for example QtQuick.Controls
    QString folder; ///< its folder
    QString place;  ///< its path relative to the folder of QML modules
};

struct QmlImports {
    QList<QmlModule> modules;
    QStringList missing; ///< names of modules that were not found in any folder
};

/// Lists the QML modules that a program's compiled-in QML imports. Resources may be uncompressed or
/// compressed. Error: the file cannot be read.
[[nodiscard]] Result<QStringList> importsInside(const QString &program);

/// Runs Qt's qmlimportscanner to find the modules that `names`, and the QML files below `folders`, import.
/// `scanner` is its path; `qml` is the folder of Qt's modules. Errors: it cannot be run, or its output cannot
/// be parsed.
[[nodiscard]] Result<QmlImports> qmlImports(const QString &scanner, const QString &qml,
                                            const QStringList &names, const QStringList &folders);

/// Lists the files of a module below its folder. Leaves out nested modules and files that only development
/// tools use.
[[nodiscard]] QStringList filesOf(const QmlModule &module);

} // namespace tx::bundling
