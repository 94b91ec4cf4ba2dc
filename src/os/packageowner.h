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

/// The folders of the package managers' databases. Tests use others; set before other threads use them.
struct PackageDatabases {
    QString dpkg = QStringLiteral("/var/lib/dpkg");
    QStringList rpm{QStringLiteral("/var/lib/rpm"), QStringLiteral("/usr/lib/sysimage/rpm")};
    QString rpmProgram = QStringLiteral("rpm");
};
PackageDatabases &packageDatabases();

/// Returns the package that owns the bundle or anything in it; absent if there is none. Returns an error if
/// the database of an installed package manager cannot be read, because the bundle may belong to a package
/// then. Thread: any but the main one: it reads many files, and may start a program.
[[nodiscard]] Result<std::optional<PackageOwner>> packageOwnerOf(const QString &bundlePath);
/// Returns the package that owns the entry at `path` itself, such as one that a move would replace. Links are
/// not followed.
[[nodiscard]] Result<std::optional<PackageOwner>> packageOwnerOfEntry(const QString &path);

} // namespace tx
