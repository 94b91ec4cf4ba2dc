// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QStringList>

#include <optional>

namespace tx {

/// A package of the system's package manager.
struct PackageOwner {
    QString manager; ///< "dpkg" or "rpm"
    QString package;
};

/// Where the package managers keep what they know. Tests name others; set before other threads use them.
struct PackageDatabases {
    QString dpkg = QStringLiteral("/var/lib/dpkg");
    QStringList rpm{QStringLiteral("/var/lib/rpm"), QStringLiteral("/usr/lib/sysimage/rpm")};
    QString rpmProgram = QStringLiteral("rpm");
};
PackageDatabases &packageDatabases();

/// The package to which the bundle, or anything in it, belongs; absent when there is none. An error when a
/// package manager is there whose database cannot be read: the bundle may belong to it then. Thread: any but
/// the main one: it reads many files, and may start a program.
[[nodiscard]] Result<std::optional<PackageOwner>> packageOwnerOf(const QString &bundlePath);
/// The same for what is at `path` itself, such as what a move would replace: of a link, that of its own name,
/// whatever it leads to.
[[nodiscard]] Result<std::optional<PackageOwner>> packageOwnerOfEntry(const QString &path);

} // namespace tx
