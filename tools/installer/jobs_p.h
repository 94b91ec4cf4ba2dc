// SPDX-License-Identifier: MIT
#pragma once

#include "installer/jobs.h"
#include "posix/posixfiles.h"

#include <string>
#include <sys/types.h>

/// Functions that all jobs use.
namespace tx::installer {

/// Opens a program of this framework, or a folder that it works in. As root, only if only root can change it.
[[nodiscard]] std::string openTrusted(const std::string &path, const JobContext &context,
                                      posix::Descriptor &entry);

/// Why something cannot be installed for the asking user.
[[nodiscard]] std::string problemOf(const std::string &path, mode_t type, const JobContext &context);

[[nodiscard]] bool isProcess(const std::string &word);

/// Logs "refused" and the reason. Returns JobRefused.
[[nodiscard]] int refuse(const JobContext &context, const std::string &why);

/// Returns why the application, or a link at its path, must not be replaced: only the package manager may
/// change what it has installed. Empty if no package owns it or anything in it.
[[nodiscard]] std::string packageProblem(const std::string &application, const JobContext &context);

/// Replaces this process with the installer tool and passes these arguments. Returns JobForbidden if anyone
/// but root could have changed the tool, and JobFailed if it cannot be started. Logs both.
[[nodiscard]] int becomeInstaller(const JobContext &context, const std::vector<std::string> &words,
                                  const std::vector<std::string> &variables);

} // namespace tx::installer
