// SPDX-License-Identifier: MIT
#pragma once

#include "installer/files.h"
#include "posix/packagedatabases.h"

#include <functional>
#include <string>
#include <vector>

namespace tx::installer {

/// Exit statuses of TXUpdateAuthorize. pkexec has 126 and 127 for itself.
enum JobStatus : int {
    JobDone = 0,
    JobRefused = 64,   ///< not one of the two jobs, or not with these words
    JobFailed = 73,    ///< the job could not be done; what was there is still there
    JobForbidden = 77, ///< others could have changed this program
};

/// The most that a job's words take, each with the NUL behind it.
constexpr size_t longestJob = 16384;

/// The outside world of a job, for tests to replace.
struct JobContext {
    std::string executable; ///< this program
    bool asRoot = false;    ///< runs with root's rights: only root's own programs are started
    uid_t askingUser = 0;   ///< who asked for it
    std::vector<std::string> applicationsFolders; ///< into which applications are moved
    Files *files = nullptr;
    PackageFolders packages;          ///< whose files are not exchanged
    std::string rpm = "/usr/bin/rpm"; ///< asked where there is a database of rpm
    /// Runs a program and gives all that it writes; the reason when that fails
    /// (tools/installer/programoutput.h).
    std::function<std::string(const std::string &program, const std::vector<std::string> &arguments,
                              std::string &output)>
        outputOf;
    /// Replaces this process by the open program `file`; comes back with an errno value when that fails.
    std::function<int(int file, const std::vector<std::string> &words)> become;
    std::function<void(const std::string &word)> say; ///< to whoever asked
    std::function<void(const std::string &line)> log;
};

/// Takes the words of a job apart, each of which ends in NUL. False when they are too long or end otherwise.
[[nodiscard]] bool readWords(const std::string &input, std::vector<std::string> &words);

/// Does the one job that `words` name, for the application that this program is a part of:
///   install PID NEW-APPLICATION ARCHIVE   becomes the installer tool, which replaces the application
///   move FOLDER                           copies the application into an Applications folder, says "moved"
/// Neither replaces an application of which a package owns a file, nor one of which that cannot be told.
/// Everything else is refused. The result is the exit status.
[[nodiscard]] int runJob(const std::vector<std::string> &words, const JobContext &context);

} // namespace tx::installer
