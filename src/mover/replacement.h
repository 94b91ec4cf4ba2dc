// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <QString>

namespace tx {

/// Puts a finished copy into the place of what is at a destination, in the order that loses nothing: at every
/// instant the destination holds a complete application, or the next opening of it puts one there. The caller
/// holds the application's lock. Thread: any. Errors: those of FileSystem.
class Replacement {
public:
    explicit Replacement(const QString &destination);

    /// Where the copy is made, beside the destination.
    [[nodiscard]] QString stagedPath() const { return m_staged; }
    /// Where what was at the destination is afterwards; whatever is found there is complete.
    [[nodiscard]] QString oldPath() const { return m_old; }
    /// Whether takeName() has replaced something, which is at oldPath() then.
    [[nodiscard]] bool hasReplaced() const { return m_hasReplaced; }

    /// Gives the copy at stagedPath() the destination's name. On an error what was at the destination is
    /// there still, and the copy is removed; if it could not be put back, the log says where it is.
    [[nodiscard]] TXError takeName();
    /// Undoes takeName(): what was at the destination comes back, and the copy is removed. On an error both
    /// stay where they are.
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
