// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"
#include "installer/jobmessage.h"
#include "installer/programoutput.h"
#include "posix/packagedatabases.h"
#include "posix/privatefile.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tx::installer {

/// Exit statuses of TXUpdateAuthorize. pkexec has 126 and 127 for itself.
enum JobStatus : int {
    JobDone = 0,
    JobRefused = 64,    ///< not one of the three jobs, or not with these words
    JobUnverified = 65, ///< the archive is not an update that the application's keys have signed
    JobFailed = 73,     ///< the job could not be done; what was there is still there
    JobForbidden = 77,  ///< others could have changed this program
};

/// The argument with which this program is started for an update that nobody verifies, as the application has
/// no keys: whoever is asked for the password can see it among the details of the question.
constexpr const char *unverifiedArgument = "the-update-is-not-verified";
/// Names what the user has unpacked of a verified update, for the installer tool, which then installs what is
/// root's own and removes that.
constexpr const char *verifiedVariable = "TXUPDATE_VERIFIED";
/// How long an archive may take to be copied, verified and unpacked.
constexpr std::chrono::minutes longestVerification(15);

/// The outside world of a job, for tests to replace.
struct JobContext {
    std::string executable;      ///< this program
    bool asRoot = false;         ///< runs with root's rights: only root's own programs are started
    bool saidUnverified = false; ///< the question said that the update is not verified
    uid_t askingUser = 0;        ///< who asked for it
    std::vector<std::string> applicationsFolders; ///< into which applications are moved
    Files *files = nullptr;
    PrivateFiles *privateFiles = nullptr;
    PackageFolders packages;          ///< whose files are not exchanged
    std::string rpm = "/usr/bin/rpm"; ///< asked where there is a database of rpm
    /// Runs a program and gives all that it writes; the reason when that fails
    /// (tools/installer/programoutput.h).
    std::function<std::string(const std::string &program, const std::vector<std::string> &arguments,
                              std::string &output)>
        outputOf;
    /// Runs a program to its end, as runProgram() does.
    std::function<std::string(const std::string &program, const std::vector<std::string> &arguments,
                              const ProgramInput &input, std::string &output, int &status)>
        run;
    /// Replaces this process by the open program `file`, with `variables` in its environment; comes back with
    /// an errno value when that fails.
    std::function<int(int file, const std::vector<std::string> &words,
                      const std::vector<std::string> &variables)>
        become;
    /// Ends this process when it is not called again in time; 0 s: never.
    std::function<void(std::chrono::seconds limit)> endAfter;
    std::function<void(const std::string &word)> say; ///< to whoever asked
    std::function<void(const std::string &line)> log;
    std::function<void(const std::string &line)> remark; ///< for the system's log only; no failure
};

/// Takes the words of a job apart, each of which ends in NUL. False when they are too long or end otherwise.
[[nodiscard]] bool readWords(const std::string &input, std::vector<std::string> &words);

/// Does the one job that `words` name, for the application that this program is a part of:
///   install PID NEW-APPLICATION ARCHIVE   becomes the installer tool, which replaces the application
///   install-signed PID APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH TEXT...
///                                         verifies and unpacks `archive`, then does the same
///   move FOLDER                           copies the application into an Applications folder, says "moved"
/// An application with keys is updated only by the second, one without only by the first. None replaces an
/// application of which a package owns a file, nor one of which that cannot be told.
/// Everything else is refused. The result is the exit status.
[[nodiscard]] int runJob(const std::vector<std::string> &words, const posix::Descriptor &archive,
                         const JobContext &context);

} // namespace tx::installer
