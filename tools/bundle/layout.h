// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include <optional>

namespace tx::bundling {

/// How the files of a bundle are arranged.
enum class Layout {
    App,   ///< MyApp.app/Contents/{Linux,Frameworks,PlugIns,Resources,Info.plist}
    Prefix ///< myapp/{bin,lib,share,Info.plist}, all of them links into myapp/Contents
};

/// Parses "app" or "prefix". Returns an empty optional for any other name.
[[nodiscard]] std::optional<Layout> layoutNamed(const QString &name);

/// Where the parts of a bundle are. Paths are relative to the bundle and have no slash at either end.
struct Places {
    QString bundle;    ///< name of the bundle's folder
    QString info;      ///< Info.plist
    QString programs;  ///< the executable, qt.conf and the programs that Qt starts
    QString libraries; ///< all shared libraries, and the framework's resources in a folder next to them
    QString plugins;   ///< Qt plug-ins, one folder for each kind
    QString qml;       ///< QML modules
    QString resources; ///< the application's data, icon and desktop file
    QString translations;
    QString licences;
    QString icons;       ///< folder of the icon
    QString desktopFile; ///< folder of the desktop file
    /// Links at the top of the bundle with their targets. They are the same in all versions, so that an
    /// update exchanges only one folder.
    QList<std::pair<QString, QString>> links;
};

/// `executable` is a file name. `name` is the application's name for people.
[[nodiscard]] Places placesOf(Layout layout, const QString &executable, const QString &name);

/// Returns the relative path from one folder of the bundle to another, such as "../Frameworks"; "." for the
/// same folder.
[[nodiscard]] QString wayBetween(const QString &from, const QString &to);

} // namespace tx::bundling
