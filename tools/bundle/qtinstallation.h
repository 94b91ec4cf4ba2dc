// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QSet>
#include <QString>
#include <QStringList>

namespace tx::bundling {

/// Where the Qt that a program uses keeps what it loads at run time. A folder that it does not have is null.
struct QtInstallation {
    QString plugins;
    QString qml;
    QString translations;
    QString programs;  ///< QtWebEngineProcess, qmlimportscanner
    QString resources; ///< of the web engine
};

/// Looks around the folder of libQt6Core. Errors: there are no plug-ins.
[[nodiscard]] Result<QtInstallation> qtInstallationOf(const QString &libraryFolder);

/// Plug-ins of one folder that a module of Qt needs.
struct PluginRule {
    QString module;      ///< such as "Gui"
    QString folder;      ///< below the plug-ins' folder
    QString name;        ///< a file name with *, or empty for all of the folder
    bool isNeeded;       ///< no application can do without it
    QString consequence; ///< what is missing without it; empty when that is usual
    QString package;     ///< Debian's
};

/// The table of rules.
[[nodiscard]] const QList<PluginRule> &pluginRules();

/// Names of libraries that are not linked but loaded by a library or plug-in of this name, in the order in
/// which they are tried; the first of each group that there is counts.
[[nodiscard]] QList<QStringList> loadedBy(const QString &fileName);

/// The module of a library's name: "libQt6Gui.so.6" is "Gui". Null for any other library.
[[nodiscard]] QString qtModuleOf(const QString &libraryName);

/// Beginnings of names of the translation files of a module, such as "qtbase_".
[[nodiscard]] QStringList translationsOf(const QSet<QString> &modules);

} // namespace tx::bundling
