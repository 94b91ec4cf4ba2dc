// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"
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
    std::optional<mode_t> mask; ///< with which the host made files (umask), where that was recorded
};

/// The rights of this process, so that a test can make a change of them fail. What is the user's own is
/// touched with no more rights than the user has.
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
    /// What the user has unpacked of an update that was verified: removed at the end instead of installed.
    /// Empty unless the new application is what root has unpacked, in verifiedPathFor() of the host bundle.
    std::string unpackedByUser;
    std::string environmentRecord; ///< the recorded session, removed at the end; empty when there is none
    Session session;
    /// Opens an application; the reason when it cannot.
    std::function<std::string(const std::string &bundle, const Session &session)> open;
    std::function<void(const std::string &line)> log;
    /// Tells the host that it may end: called once the arguments are checked, the lock is held and the place
    /// is known to take the new application. False when no host listens; nothing is changed then.
    std::function<bool()> ready;
    /// Whether the host has gone on without having heard that: asked while it runs and when it has ended.
    std::function<bool()> unheard;
};

/// Takes the command line apart, without a look at any file; `why` says what is wrong with it.
[[nodiscard]] bool parseArguments(const std::vector<std::string> &words, Arguments &arguments,
                                  std::string &why);
/// Finds out whether the one bundle may replace the other. Reads their property lists, which a process with
/// an administrator's rights must not. Folders that lead to the paths are replaced by where they lead.
[[nodiscard]] bool checkBundles(Arguments &arguments, std::string &why);
/// Both, one after the other.
[[nodiscard]] bool readArguments(const std::vector<std::string> &words, Arguments &arguments,
                                 std::string &why);

/// All that comes before the installation: whose it is, then the command line and the recorded environment
/// with no more than that user's rights. The exit status, StatusDone when it may begin.
[[nodiscard]] int prepare(const std::vector<std::string> &words, const std::string &environmentRecord,
                          Rights &rights, Arguments &arguments, Session &session, std::string &why);

/// Why `arguments` are not those of a verified update: empty when the new application is in
/// verifiedPathFor() of the host bundle and nobody but root can change it.
[[nodiscard]] std::string notVerified(const Arguments &arguments);
/// Removes what was verified and is not installed, unless another installation has the lock by now.
void discardVerified(const std::string &hostBundle, Files &files);

/// Replaces the host bundle by the new application when the host has ended, and opens what stands there.
/// At every instant a complete application stands at the host's path, or the next run puts one back.
[[nodiscard]] int install(const Arguments &arguments, Context &context);

/// True when the process has ended, or ends within `limit`.
[[nodiscard]] bool waitForEnd(pid_t process, std::chrono::milliseconds limit);

/// Whose installation this is: the user whom pkexec names (PKEXEC_UID), else, as root, the owner of the new
/// application. False, and `why`, when that is no user.
[[nodiscard]] bool identifyUser(const Arguments &arguments, Session &session, std::string &why);

/// The recorded environment beside the tool, when it is `user`'s own, complete, and nobody else may read or
/// change it; else the least that a program needs. `mask` becomes the recorded one, if there is one.
[[nodiscard]] std::vector<std::string> environmentFor(uid_t user, const std::string &environmentRecord,
                                                      std::optional<mode_t> *mask = nullptr);

} // namespace tx::installer
