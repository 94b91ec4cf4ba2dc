// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// Suffixes of the temporary entries next to an application while it is moved or updated: the name of an
/// entry is ".", the application's name and a suffix. The host, the installer and the program that runs as
/// root use the same names. Each can therefore clean up after an interrupted run of another.
/// src/posix/interrupted.h documents what each entry contains.
inline constexpr char movedSuffix[] = ".txupdate-move";
inline constexpr char backupSuffix[] = ".txupdate-old";
inline constexpr char wholeSuffix[] = ".txupdate-whole";

} // namespace tx
