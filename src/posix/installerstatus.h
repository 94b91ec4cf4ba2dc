// SPDX-License-Identifier: MIT
#pragma once

namespace tx::installer {

/// Exit statuses of the installer tool. With all but the first and the last two the application is unchanged.
enum Status : int {
    StatusDone = 0,
    StatusUsage = 64,       ///< the arguments are wrong; nothing was touched
    StatusCannotStage = 73, ///< the new application could not be put beside the old one
    StatusCannotSwap = 74,  ///< the two could not be exchanged
    StatusTryLater = 75,    ///< the host does not end, or another installation of it is or may be running
    StatusForbidden = 78,   ///< runs as root although others could have changed it
    StatusCannotOpen = 76,  ///< installed, but the new application could not be started
    StatusNoRights = 77,    ///< root's rights could not be dropped or regained; the tool ended at that point
};

/// The line with which the tool reports on its standard output that it is ready.
inline constexpr char readyLine[] = "ready\n";

} // namespace tx::installer
