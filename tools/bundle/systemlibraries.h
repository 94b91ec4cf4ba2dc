// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QList>
#include <QString>

namespace tx::bundling {

/// A line of system-libraries.txt.
struct SystemLibrary {
    QString pattern; ///< name of the library with the wildcard *
    QString package; ///< name of the Debian package that contains it
    QString reason;
};

/// Libraries that are not copied into bundles because they belong to the user's system, and packages that
/// copied libraries expect there.
class SystemLibraries {
public:
    /// The list that is compiled into this program.
    static const SystemLibraries &known();
    /// Parses a list. Errors name the line.
    [[nodiscard]] static Result<SystemLibraries> parse(const QString &text);

    /// Returns the line for this library, or null if bundles contain a copy of it.
    [[nodiscard]] const SystemLibrary *find(const QString &name) const;
    /// Returns the package that a bundle with this library expects on the system, or null.
    [[nodiscard]] const SystemLibrary *companionOf(const QString &name) const;
    [[nodiscard]] const QList<SystemLibrary> &all() const { return m_left; }

private:
    QList<SystemLibrary> m_left;
    QList<SystemLibrary> m_companions;
};

} // namespace tx::bundling
