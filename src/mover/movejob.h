// SPDX-License-Identifier: MIT
#pragma once

#include "mover/applicationplaces.h"

#include <TarvixUpdate/TXError.h>

namespace tx {

class Replacement;
class Task;

/// Brings the application to its new place. Thread: main; alerts are modal, and copying blocks.
class MoveJob {
public:
    MoveJob(const ApplicationPlaces &places, const QString &name)
        : m_places(places)
        , m_name(name) {}

    enum class Outcome {
        Moved,
        Failed,       ///< the application is still where it was
        OtherCopyRuns ///< a copy at the destination was opened; this process is to end
    };
    [[nodiscard]] Outcome performMove();
    /// Why the move failed and what the user can do, in the user's language; empty unless it failed.
    [[nodiscard]] QString failureText() const { return m_failureText; }

    /// Opens the moved application once this process has ended.
    void setupRelaunchAfterExit() const;
    /// Removes the original after the move: moves it to the Trash, or detaches and deletes its disk image.
    void moveOldCopyToTrash() const;

private:
    Outcome performUnauthorizedMove();
    /// Its part under the application's lock.
    Outcome replaceDestination(const QString &destination);
    Outcome performAuthorizedMove();
    /// Remembers why the move fails, in the user's language.
    Outcome fail(const QString &text, const QStringList &arguments);
    /// Fails because the copy could not be made or get its name.
    Outcome failToCopy(const TXError &error);
    /// Takes what was replaced to the Trash, as what was at the destination. False, with a failure text that
    /// shows the path `shown`, when it is not there.
    bool trashOld(const Replacement &replacement, const QString &destination, const QString &shown);
    /// Returns whether a package of the system owns the application that the move would replace, or that
    /// cannot be determined.
    bool replacesPackage();
    bool isRunningAt(const QString &path) const;
    void openOtherCopy() const;
    bool runPrivileged();
    /// Reads the output of the privileged program until its end. There is no time limit, because the program
    /// copies.
    bool isMoved(Task &task);
    /// The path of the framework's resources after the move.
    QString movedResources() const;

    const ApplicationPlaces &m_places;
    QString m_name;
    QString m_failureText;
};

/// Moves an entry to the Trash and waits for it. Returns the error, and logs it, if that fails: nothing is
/// deleted. `original`: the path in the same folder that it had before, to which it can be restored; if
/// empty, `path`.
[[nodiscard]] TXError removeItemAtPath(const QString &path, const QString &original = {});
/// Copies a tree; the error, with a line in the log, when that fails.
[[nodiscard]] TXError copyItemAtPath(const QString &from, const QString &to);

/// The shell's command that detaches and deletes a disk image in five seconds.
[[nodiscard]] QString detachCommand(const QString &volumePath, const QString &imageFile);

} // namespace tx
