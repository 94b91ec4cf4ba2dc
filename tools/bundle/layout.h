// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include <optional>

namespace tx::bundling {

/// How a bundle is divided.
enum class Layout {
    App,   ///< MyApp.app/Contents/{Linux,Frameworks,PlugIns,Resources,Info.plist}
    Prefix ///< myapp/{bin,lib,share,Info.plist}, which are links into myapp/Contents
};

/// "app" or "prefix"; absent for anything else.
[[nodiscard]] std::optional<Layout> layoutNamed(const QString &name);

/// Where things are in a bundle: paths relative to the bundle, without a slash at either end.
struct Places {
    QString bundle;    ///< name of the bundle's folder
    QString info;      ///< Info.plist
    QString programs;  ///< the executable, qt.conf and programs that Qt starts
    QString libraries; ///< all shared libraries, and the framework's resources below it
    QString plugins;   ///< Qt's plug-ins, one folder for each kind
    QString qml;       ///< QML modules
    QString resources; ///< data of the application, its icon and its desktop file
    QString translations;
    QString licences;
    QString icons;       ///< the folder of the icon
    QString desktopFile; ///< the folder of the desktop file
    /// Links at the top and what they lead to: they stay the same in all versions, so that one folder holds
    /// everything that an update exchanges.
    QList<std::pair<QString, QString>> links;
};

/// `executable`: its file name. `name`: the application's, for people.
[[nodiscard]] Places placesOf(Layout layout, const QString &executable, const QString &name);

/// The way from one folder of the bundle to another, such as "../Frameworks"; "." when they are the same.
[[nodiscard]] QString wayBetween(const QString &from, const QString &to);

} // namespace tx::bundling
