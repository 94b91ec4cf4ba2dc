// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// What follows "." and the name of an application in the names of entries beside it that are there while it
/// is moved or updated. The host, the installer and the program that runs with an administrator's rights use
/// the same names, so that each knows what a killed run of another left. What each holds is said at the
/// functions in src/posix/interrupted.h that make these names.
inline constexpr char movedSuffix[] = ".txupdate-move";
inline constexpr char backupSuffix[] = ".txupdate-old";
inline constexpr char wholeSuffix[] = ".txupdate-whole";

} // namespace tx
