// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>

/// Offers to move the application into an Applications folder when it starts. At its current path it might be
/// impossible to update, or clutter a folder of the user. Thread: main; its questions are modal.
class TX_EXPORT TXUpdateAppMover {
    Q_GADGET
public:
    /// What became of the offer.
    enum Result : int {
        Failed = -1,    ///< the user was told the reason; the application continues to run from its old path
        Declined = 0,   ///< the user does not want it
        NothingToDo = 1 ///< it is in an Applications folder, or the user was asked before
    };
    Q_ENUM(Result)

    /// Asks if necessary, and moves the application if the user agrees. After a successful move this process
    /// ends and the moved application is opened. Without windows the question counts as declined.
    static Result moveToApplicationsFolderIfNecessary();
    /// Moves without asking; otherwise the same.
    static Result moveToApplicationsFolderWithoutAsking();
};
