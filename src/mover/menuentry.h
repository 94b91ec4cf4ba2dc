// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <TarvixUpdate/TXBundle.h>

#include <QStringList>

/// The entry in the desktop's menu, with icon and MIME types, of an application in an Applications folder. It
/// is for this user only: the files are in the user's data folder ($XDG_DATA_HOME), and their names are made
/// from the bundle's identifier. Files that this framework did not write are never changed. Each file is
/// replaced in one step, and the entry is written last, so that a failure leaves the earlier entry or none.
namespace tx {

enum class MenuEntryOutcome {
    Current,   ///< the entry is there
    LeftAlone, ///< it was not written, for a reason that stays: another program's file, or a bad name
    OtherCopy, ///< the entry belongs to another copy of the application, which exists
    Failed     ///< a step failed; the log says which
};

/// Whether the application gets an entry: it is in an Applications folder, has an identifier, and its
/// Info.plist does not set TXUpdateDesktopEntry to false. Also false where this user has no menu
/// (Services::folders). Reads no file. Thread: any.
[[nodiscard]] bool belongsInMenu(const TXBundle &bundle);

/// Writes the entry, or what has changed of it. `formerPath` is where the bundle was before a move. Waits for
/// the programs that update the desktop's databases, each at most ten seconds. Thread: any.
MenuEntryOutcome putMenuEntry(const TXBundle &bundle, const QString &formerPath = {});

/// Removes the entry of the bundle at this path, which need not exist, with its icon and MIME types. Returns
/// the paths of the removed files; none if there was no entry. Thread: any.
Result<QStringList> removeMenuEntry(const QString &bundlePath);

/// Writes the entry of a bundle that was moved, and remembers it for refreshMenuEntry(). A failure is logged.
void putMenuEntryAfterMove(const TXBundle &bundle, const QString &formerPath);

/// For the start of the running application: compares a stored stamp, and does the rest in the background if
/// the application or its place is another than at the last start. Thread: main.
void refreshMenuEntry();

/// Forgets the stamp, so that the next start writes the entry again. Thread: any.
void forgetMenuEntry();

} // namespace tx
