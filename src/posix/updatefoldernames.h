// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// The names in the folder of an update, beside the archive and the unpacked application. The host, the
/// installer tool and the tools that unpack archives use the same names, so that each can clean up after an
/// interrupted run of another. In the host, UpdateFolder (src/model/updatefolder.h) makes paths of them.

/// The copy of the installer tool; the framework's resources contain the original under the same name.
inline constexpr char installerToolName[] = "TXUpdateInstaller.app";
/// The executable in the installer tool, as a path that follows the tool's.
inline constexpr char installerExecutableInTool[] = "/Contents/MacOS/TXUpdateInstaller";
/// The session in which the installer tool opens the application again: "NAME=value" strings and the umask,
/// each terminated by NUL.
inline constexpr char environmentRecordName[] = "TXUpdateInstaller.environment";
/// An archive that has not been received completely.
inline constexpr char incompleteDownloadName[] = ".txupdate-download";
/// The contents of an archive that has not been unpacked completely.
inline constexpr char incompleteUnpackingName[] = ".txupdate-unpacking";
/// Suffix of the folder's path: the lock file of a process that downloads into the folder or installs from
/// it.
inline constexpr char updateFolderLockSuffix[] = ".lock";

} // namespace tx
