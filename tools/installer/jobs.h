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
    JobRefused = 64,    ///< not one of the three jobs, or its words are wrong
    JobUnverified = 65, ///< the archive is not an update that the application's keys have signed
    JobFailed = 73,     ///< the job could not be done; what was there is still there
    JobForbidden = 77,  ///< others could have changed this program
};

/// This program gets this argument if the application has no keys, so that nobody verifies the update. The
/// password dialog shows the argument among its details.
constexpr const char *unverifiedArgument = "the-update-is-not-verified";
/// The environment variable with the path of the user's own unpacked copy of a verified update. The installer
/// tool installs root's copy and removes this one.
constexpr const char *verifiedVariable = "TXUPDATE_VERIFIED";
/// Time limit for copying, verifying and unpacking an archive.
constexpr std::chrono::minutes longestVerification(15);

/// The outside world of a job, for tests to replace.
struct JobContext {
    std::string executable;      ///< this program
    bool asRoot = false;         ///< runs with root's rights: only root's own programs are started
    bool saidUnverified = false; ///< the password dialog said that the update is not verified
    uid_t askingUser = 0;        ///< who asked for it
    std::vector<std::string> applicationsFolders; ///< into which applications are moved
    Files *files = nullptr;
    PrivateFiles *privateFiles = nullptr;
    PackageFolders packages;          ///< whose files are not exchanged
    std::string rpm = "/usr/bin/rpm"; ///< asked where there is a database of rpm
    /// Runs a program and returns its output; returns the reason on failure
    /// (tools/installer/programoutput.h).
    std::function<std::string(const std::string &program, const std::vector<std::string> &arguments,
                              std::string &output)>
        outputOf;
    /// Runs a program and waits for its end, as runProgram() does.
    std::function<std::string(const std::string &program, const std::vector<std::string> &arguments,
                              const ProgramInput &input, std::string &output, int &status)>
        run;
    /// Replaces this process with the open program `file` and adds `variables` to its environment. Returns an
    /// errno value on failure.
    std::function<int(int file, const std::vector<std::string> &words,
                      const std::vector<std::string> &variables)>
        become;
    /// Starts a timer that ends this process after `limit`. A new call restarts the timer; 0 s stops it.
    std::function<void(std::chrono::seconds limit)> endAfter;
    std::function<void(const std::string &word)> say; ///< prints a word for the asking host
    std::function<void(const std::string &line)> log;
    std::function<void(const std::string &line)>
        remark; ///< for information that is not a failure; goes only to the system's log
};

/// Splits a job into its words, each terminated by NUL. Returns false if they are too long or the last one is
/// not terminated.
[[nodiscard]] bool readWords(const std::string &input, std::vector<std::string> &words);

/// Does the job that `words` describe, for the application that contains this program:
///   install PID NEW-APPLICATION ARCHIVE   becomes the installer tool, which replaces the application
///   install-signed PID APPLICATION NEW-APPLICATION ARCHIVE PLAIN-SIGNATURE LENGTH TEXT...
///                                         verifies and unpacks `archive`, then becomes the installer tool
///   move FOLDER                           copies the application into an Applications folder, says "moved"
/// An application with keys can be updated only by "install-signed", an application without keys only by
/// "install". No job replaces an application if a package owns one of its files, or if that cannot be
/// determined. Everything else is refused. Returns the exit status.
[[nodiscard]] int runJob(const std::vector<std::string> &words, const posix::Descriptor &archive,
                         const JobContext &context);

} // namespace tx::installer
