// SPDX-License-Identifier: MIT
#pragma once

#include "installer/jobs.h"
#include "posix/posixfiles.h"

#include <string>
#include <sys/types.h>

/// What the jobs have in common.
namespace tx::installer {

/// Opens a program of this framework, or a folder that it works in. As root, only if only root can change it.
[[nodiscard]] std::string openTrusted(const std::string &path, const JobContext &context,
                                      posix::Descriptor &entry);

/// Why something cannot be installed for the asking user.
[[nodiscard]] std::string problemOf(const std::string &path, mode_t type, const JobContext &context);

[[nodiscard]] bool isProcess(const std::string &word);

/// Logs why, with "refused" in front. JobRefused.
[[nodiscard]] int refuse(const JobContext &context, const std::string &why);

/// Why the application, or a link in its place, must not be replaced: only the package manager may change
/// what it installed. Empty if no package owns it or anything in it.
[[nodiscard]] std::string packageProblem(const std::string &application, const JobContext &context);

/// Becomes the installer tool with these words behind its name. JobForbidden when others could have changed
/// it, JobFailed when it cannot be started; both are logged.
[[nodiscard]] int becomeInstaller(const JobContext &context, const std::vector<std::string> &words,
                                  const std::vector<std::string> &variables);

} // namespace tx::installer
