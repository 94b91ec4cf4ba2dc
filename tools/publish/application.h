// SPDX-License-Identifier: MIT
#pragma once

#include "publish/faults.h"
#include "trust/appinfo.h"

#include <QString>

#include <string>
#include <vector>

/// Publishing of a built application: packing it, writing its entry into the feed, and uploading both. Only
/// the publishers' tool contains this code. Thread: main, unless a header says otherwise.
namespace tx::publishing {

/// A bundle to publish.
struct Application {
    QString path;           ///< absolute
    QString fileName;       ///< the bundle's name, such as "MyApp.app"
    QString name;           ///< for people: CFBundleName, otherwise the file name without ".app"
    QString displayVersion; ///< CFBundleShortVersionString, otherwise the build
    trust::AppInfo info;    ///< identifier, build, keys and the feed's name
};

/// Reads a bundle's Info.plist. Fault: Keys, if the bundle has no identifier or no build, or its keys are
/// malformed.
Outcome<Application> readApplication(const QString &bundle);

/// A file, folder or link in a bundle.
struct BundleEntry {
    enum class Kind { File, Folder, Link };
    std::string name; ///< path relative to the bundle; empty for the bundle itself
    Kind kind = Kind::File;
    bool isExecutable = false;
    qint64 size = 0;     ///< of a file, in bytes
    qint64 modified = 0; ///< seconds since 1970
    std::string target;  ///< the target of a link
};

/// Lists a bundle and everything in it, sorted by the bytes of the names, so that the order is the same on
/// every machine. Fault: File, for entries that an installation refuses or an archive cannot store (devices,
/// pipes, sockets, absolute links and links that lead out of the bundle) and for entries that cannot be read.
Outcome<std::vector<BundleEntry>> listBundle(const QString &bundle);

/// Checks that the application can be started after an update: the executable must exist, and everybody must
/// be allowed to execute it. The same applies to every other program in the bundle.
[[nodiscard]] Verdict checkPrograms(const Application &application, const std::vector<BundleEntry> &entries);

} // namespace tx::publishing
