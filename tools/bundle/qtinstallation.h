// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QSet>
#include <QString>
#include <QStringList>

namespace tx::bundling {

/// The folders from which the Qt libraries of a program load files at run time. A folder that does not exist
/// is null.
struct QtInstallation {
    QString plugins;
    QString qml;
    QString translations;
    QString programs;  ///< folder of QtWebEngineProcess and qmlimportscanner
    QString resources; ///< resources of the web engine
};

/// Finds the installation around the folder of libQt6Core. Error: it has no plug-ins.
[[nodiscard]] Result<QtInstallation> qtInstallationOf(const QString &libraryFolder);

/// Plug-ins of one folder that a Qt module needs.
struct PluginRule {
    QString module;      ///< for example "Gui"
    QString folder;      ///< its path relative to the folder of plug-ins
    QString name;        ///< a file name with the wildcard *; empty for all files of the folder
    bool isNeeded;       ///< no application works without it
    QString consequence; ///< what does not work without it; empty if that is usual
    QString package;     ///< name of the Debian package
};

/// The table of all rules.
[[nodiscard]] const QList<PluginRule> &pluginRules();

/// Names of libraries that a library or plug-in of this name loads with dlopen() instead of linking them.
/// Each group lists alternatives in the order in which they are tried; only the first one that exists is
/// needed.
[[nodiscard]] QList<QStringList> loadedBy(const QString &fileName);

/// Returns the module of a library: "Gui" for "libQt6Gui.so.6". Null for a library that does not belong to
/// Qt.
[[nodiscard]] QString qtModuleOf(const QString &libraryName);

/// Prefixes of the translation files of these modules, such as "qtbase_".
[[nodiscard]] QStringList translationsOf(const QSet<QString> &modules);

} // namespace tx::bundling
