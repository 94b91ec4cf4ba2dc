// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// Replaces the application at a destination with a finished copy. The destination always contains a complete
/// application, or the next start repairs it. The caller must hold the application's lock. Thread: any.
/// Errors: those of FileSystem.
class Replacement {
public:
    explicit Replacement(const QString &destination);

    /// Where the copy is made, beside the destination.
    [[nodiscard]] QString stagedPath() const { return m_staged; }
    /// Where what was at the destination is afterwards; whatever is found there is complete.
    [[nodiscard]] QString oldPath() const { return m_old; }
    /// Whether takeName() has replaced something, which is at oldPath() then.
    [[nodiscard]] bool hasReplaced() const { return m_hasReplaced; }

    /// Renames the copy at stagedPath() to the destination. On an error the old application is still at the
    /// destination and the copy is removed; if the old application could not be restored, the log says where
    /// it is.
    [[nodiscard]] TXError takeName();
    /// Undoes takeName(): restores the old application and removes the copy. On an error both stay where they
    /// are.
    [[nodiscard]] TXError putBack();

private:
    TXError takeNameByRenaming();
    TXError takeNameByCopying();
    void logOldAt(const QString &path) const;

    const QString m_folder;
    const QString m_destination;
    const QString m_staged;
    const QString m_old;
    const QString m_whole;
    bool m_hasReplaced = false;
};

} // namespace tx
