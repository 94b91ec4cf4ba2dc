// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The notes of this user, one line each, in a file of their own.
class Notes {
public:
    Notes();
    /// Appends a note; false, with the reason, when that fails.
    bool add(const QString &text, QString *reason) const;
    [[nodiscard]] QString text() const;
    bool replace(const QString &text) const;

private:
    QString m_path;
};
