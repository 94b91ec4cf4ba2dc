// SPDX-License-Identifier: MIT
#pragma once

#include "posix/bundleinfo.h"
#include "posix/handover.h"
#include "posix/interrupted.h"

#include <chrono>
#include <optional>
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
    bool dropPrivileges = false;          ///< do all of it as `user` and `group` with that user's groups;
                                          ///< only in a process with one thread
    uid_t user = 0;
    gid_t group = 0;
    std::optional<mode_t>
        mask; ///< for the modes of files that it makes (umask); this process's own without it
    /// The application's arguments and working folder. Without a folder, or if it cannot be entered, the
    /// application starts in "/".
    Handover handover;
    /// How long to wait for another opener of the same bundle.
    std::chrono::milliseconds patience = std::chrono::seconds(30);
};

struct OpenResult {
    std::string error; ///< empty on success
    bool wasRunning = false;
};

/// Starts the bundle's executable detached, in a new session and with default signal handlers, unless an
/// instance of the same bundle path is running. If two processes open the bundle at once, only one instance
/// is started; without the lock that ensures this, nothing is started. Returns when the new program is being
/// executed.
[[nodiscard]] OpenResult openBundle(const std::string &bundlePath, const OpenOptions &options = {});

} // namespace tx
