// SPDX-License-Identifier: MIT
#pragma once

#include "trust/appinfo.h"

#include <QString>

#include <string>
#include <vector>

/// What publishers do with a built application: pack it, write its entry into the feed, and upload both. A
/// publisher's tool only: no host loads any of it. Thread: main, unless a header says otherwise.
namespace tx::publishing {

/// A bundle that is going to be published.
struct Application {
    QString path;           ///< absolute
    QString fileName;       ///< of the bundle, such as "MyApp.app"
    QString name;           ///< for people: CFBundleName, else the file name without ".app"
    QString displayVersion; ///< CFBundleShortVersionString, else the build
    trust::AppInfo info;    ///< identifier, build, keys, and the feed's name
};

/// Fault: Keys, when the bundle has no identifier or no build, or its keys are malformed.
trust::Outcome<Application> readApplication(const QString &bundle);

/// An entry of a bundle.
struct BundleEntry {
    enum class Kind { File, Folder, Link };
    std::string name; ///< relative to the bundle; empty for the bundle itself
    Kind kind = Kind::File;
    bool isExecutable = false;
    qint64 size = 0;     ///< bytes of a file
    qint64 modified = 0; ///< seconds since 1970
    std::string target;  ///< of a link
};

/// All that a bundle holds, itself included, in the order of the names' bytes: the same for every machine.
/// Fault: File, for what an installation refuses or an archive cannot keep: devices, pipes and sockets, links
/// that are absolute or lead out of the bundle, what cannot be read.
trust::Outcome<std::vector<BundleEntry>> listBundle(const QString &bundle);

/// What would keep the application from being started after an update: an executable that is missing or that
/// not everybody may execute, and the same for every other program in the bundle.
[[nodiscard]] trust::Verdict checkPrograms(const Application &application,
                                           const std::vector<BundleEntry> &entries);

} // namespace tx::publishing
