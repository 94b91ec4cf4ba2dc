// SPDX-License-Identifier: MIT
#pragma once

#include "platform/linux/bundleinfo.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// Starting of application bundles without Qt, shared by the workspace, the `open` tool, the relaunch tool
/// and the installer tool. Thread: any.
namespace tx {

/// The processes that run `executable`, by their executable's path or, for a script, by the path that its
/// interpreter was given. Only processes that this user may examine are found.
[[nodiscard]] std::vector<pid_t> processesRunning(const std::string &executable);
/// The executables of all processes that can be examined.
[[nodiscard]] std::vector<std::string> runningExecutablePaths();

/// As whom and with what an application is started.
struct OpenOptions {
    std::vector<std::string> environment; ///< "NAME=value"; empty: this process's own
    bool dropPrivileges = false;          ///< start as `user` and `group` with that user's groups
    uid_t user = 0;
    gid_t group = 0;
};

struct OpenResult {
    std::string error; ///< empty on success
    bool wasRunning = false;
};

/// Starts the bundle's executable detached, in a session of its own, unless an instance of the same bundle
/// path runs already. Two openers at once start one instance. Returns once the new program is being executed.
[[nodiscard]] OpenResult openBundle(const std::string &bundlePath, const OpenOptions &options = {});

/// Names beside a bundle that an installation uses: the new application before the swap and the old one
/// after it, and the old one between two renames on a file system without an atomic exchange.
[[nodiscard]] std::string stagedPathFor(const std::string &bundlePath);
[[nodiscard]] std::string backupPathFor(const std::string &bundlePath);
/// The file that one installation at a time holds a lock on.
[[nodiscard]] std::string lockPathFor(const std::string &bundlePath);

/// True for a folder that this user, root or the owner of the folder around it made: in a folder where
/// everybody may write, another user could have put it there.
[[nodiscard]] bool isOwnBackup(const std::string &path);

/// A whole copy of the old application, on a file system whose folders cannot be renamed. While it is there,
/// what stands at the bundle's path may have lost some of its files.
[[nodiscard]] std::string wholePathFor(const std::string &bundlePath);

/// Puts the old application back when an installation was interrupted: nothing stands at the bundle's path
/// and a backup does, or a whole copy is there. Not while an installation runs. True when it did.
bool restoreBackup(const std::string &bundlePath);

} // namespace tx
