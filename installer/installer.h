// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"
#include "platform/installerstatus.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tx::installer {

/// The command line.
struct Arguments {
    pid_t hostProcess = 0;
    std::string newApplication;
    std::string hostBundle;
    std::string archive;
};

/// Who opens the application, and with what.
struct Session {
    uid_t user = 0;
    gid_t group = 0;
    bool dropsPrivileges = false;
    std::vector<std::string> environment;
};

/// The outside world, for tests to replace.
struct Context {
    Files *files;
    std::chrono::milliseconds hostLimit = std::chrono::minutes(2); ///< how long the host may take to end
    std::string toolBundle; ///< this tool's copy, removed at the end; empty when it runs from elsewhere
    std::string environmentRecord; ///< the recorded session, removed at the end; empty when there is none
    Session session;
    /// Opens an application; the reason when it cannot.
    std::function<std::string(const std::string &bundle, const Session &session)> open;
    std::function<void(const std::string &line)> log;
    /// Tells the host that it may end: called once the arguments are checked, the lock is held and the place
    /// is known to take the new application. False when no host listens; nothing is changed then.
    std::function<bool()> ready;
};

/// Reads the command line; `why` says what is wrong with it.
[[nodiscard]] bool readArguments(const std::vector<std::string> &words, Arguments &arguments,
                                 std::string &why);

/// Replaces the host bundle by the new application when the host has ended, and opens what stands there.
/// At every instant a complete application stands at the host's path, or the next run puts one back.
[[nodiscard]] int install(const Arguments &arguments, Context &context);

/// True when the process has ended, or ends within `limit`.
[[nodiscard]] bool waitForEnd(pid_t process, std::chrono::milliseconds limit);

/// The session of whoever started the host: by the owner of its process, or of the recorded environment
/// beside the archive, which only that user may have written.
[[nodiscard]] Session sessionFor(const Arguments &arguments, const std::string &environmentRecord);

} // namespace tx::installer
