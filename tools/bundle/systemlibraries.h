// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QList>
#include <QString>

namespace tx::bundling {

/// A line of system-libraries.txt.
struct SystemLibrary {
    QString pattern; ///< of the library's name, with * for anything
    QString package; ///< that brings it, as Debian calls it
    QString reason;
};

/// What is not copied into bundles because it belongs to the user's system, and what copied libraries expect
/// there.
class SystemLibraries {
public:
    /// The list that is compiled into this program.
    static const SystemLibraries &known();
    /// Errors name the line.
    [[nodiscard]] static Result<SystemLibraries> parse(const QString &text);

    /// The line for this library; null when a bundle brings it along.
    [[nodiscard]] const SystemLibrary *find(const QString &name) const;
    /// What a bundle with this library expects of the system; null: nothing.
    [[nodiscard]] const SystemLibrary *companionOf(const QString &name) const;
    [[nodiscard]] const QList<SystemLibrary> &all() const { return m_left; }

private:
    QList<SystemLibrary> m_left;
    QList<SystemLibrary> m_companions;
};

} // namespace tx::bundling
