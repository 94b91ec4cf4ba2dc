// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"
#include "posix/handover.h"
#include "posix/installerstatus.h"

#include <chrono>
#include <functional>
#include <optional>
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
    Handover handover;          ///< what the host passes on to the application
    std::optional<mode_t> mask; ///< with which the host made files (umask), where that was recorded
};

/// The rights of this process, so that a test can make a change of them fail. Files of the user are accessed
/// only with the user's rights.
class Rights {
public:
    virtual ~Rights() = default;
    /// Does nothing for a session that drops no privileges. After a failure the process must end.
    [[nodiscard]] virtual bool lower(const Session &session);
    /// Back to root's, without any supplementary groups.
    [[nodiscard]] virtual bool raise(const Session &session);
};
[[nodiscard]] Rights &processRights();

/// The outside world, for tests to replace.
struct Context {
    Files *files;
    Rights *rights = &processRights();
    std::chrono::milliseconds hostLimit = std::chrono::minutes(2); ///< how long the host may take to end
    std::string toolBundle; ///< this tool's copy, removed at the end; empty when it runs from elsewhere
    /// The user's own unpacked copy of a verified update. It is removed at the end and not installed. Empty
    /// unless the new application is the one that root has unpacked into verifiedPathFor() of the host
    /// bundle.
    std::string unpackedByUser;
    std::string environmentRecord; ///< the recorded session, removed at the end; empty if there is none
    Session session;
    /// Opens an application; the reason when it cannot.
    std::function<std::string(const std::string &bundle, const Session &session)> open;
    std::function<void(const std::string &line)> log;
    /// Tells the host that it may end: called once the arguments are checked, the lock is held and the place
    /// is known to take the new application. False when no host listens; nothing is changed then.
    std::function<bool()> ready;
    /// Returns whether the host continued without having received the answer. Called while it runs and when
    /// it has ended.
    std::function<bool()> unheard;
};

/// Parses the command line without accessing any file. `why` receives what is wrong with it.
[[nodiscard]] bool parseArguments(const std::vector<std::string> &words, Arguments &arguments,
                                  std::string &why);
/// Checks whether one bundle may replace the other. Reads their property lists, which a process with root's
/// rights must not do. Links to folders in the paths are resolved.
[[nodiscard]] bool checkBundles(Arguments &arguments, std::string &why);
/// Both, one after the other.
[[nodiscard]] bool readArguments(const std::vector<std::string> &words, Arguments &arguments,
                                 std::string &why);

/// All that comes before the installation: whose it is, then the command line and the recorded environment
/// with no more than that user's rights. The exit status, StatusDone when it may begin.
[[nodiscard]] int prepare(const std::vector<std::string> &words, const std::string &environmentRecord,
                          Rights &rights, Arguments &arguments, Session &session, std::string &why);

/// Checks that the new application in `arguments` is in verifiedPathFor() of the host bundle and that only
/// root can change it. Returns an empty string if so, else the reason.
[[nodiscard]] std::string notVerified(const Arguments &arguments);
/// Removes a verified update that was not installed, unless another installation holds the lock.
void discardVerified(const std::string &hostBundle, Files &files);

/// Waits for the host to end, replaces its bundle with the new application, and opens the application. The
/// host's path always contains a complete application, or the next run restores one.
[[nodiscard]] int install(const Arguments &arguments, Context &context);

/// True when the process has ended, or ends within `limit`.
[[nodiscard]] bool waitForEnd(pid_t process, std::chrono::milliseconds limit);

/// Determines the user of this installation: the one in PKEXEC_UID; otherwise, when running as root, the
/// owner of the new application. Returns false and sets `why` if there is no such user.
[[nodiscard]] bool identifyUser(const Arguments &arguments, Session &session, std::string &why);

/// The recorded environment beside the tool, when it is `user`'s own, complete, and nobody else may read or
/// change it; else the least that a program needs. `mask` becomes the recorded one, if there is one.
/// `handover` becomes the recorded one; it is not changed if there is none or if it is over a limit.
[[nodiscard]] std::vector<std::string> environmentFor(uid_t user, const std::string &environmentRecord,
                                                      std::optional<mode_t> *mask = nullptr,
                                                      Handover *handover = nullptr);

} // namespace tx::installer
