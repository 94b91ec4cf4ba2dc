// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

/// Offers, when the application starts, to move it into an Applications folder: where it stands now it may be
/// impossible to update, or in the user's way. Thread: main; its questions are modal.
class TX_EXPORT TXUpdateAppMover {
public:
    enum Result : int {
        Failed = -1,    ///< the user was told; the application runs on from where it is
        Declined = 0,   ///< the user does not want it
        NothingToDo = 1 ///< it stands well, or the user was asked before
    };

    /// Asks, unless there is nothing to ask, and moves. After a successful move this process ends and the
    /// moved application is opened. Without windows the question counts as declined.
    static Result moveToApplicationsFolderIfNecessary();
    /// Moves at once.
    static Result moveToApplicationsFolderWithoutAsking();
};
