// SPDX-License-Identifier: MIT
#pragma once

#include "installer/jobs.h"
#include "posix/plainpropertylist.h"
#include "posix/posixfiles.h"
#include "trust/appinfo.h"

#include <string>
#include <vector>

namespace tx::installer {

/// Reads the Info.plist of the bundle at `path` through its open folder `bundle`, so that nobody can exchange
/// the bundle during the call. Does not follow links. When running as root, only root may be able to write to
/// the file. Fault: File.
[[nodiscard]] trust::Outcome<plain::Value> readInfo(const posix::Descriptor &bundle, const std::string &path,
                                                    const JobContext &context);

/// Reads the keys and related values of the application that contains this program. Faults: File, Keys.
[[nodiscard]] trust::Outcome<trust::AppInfo> trustOf(const std::string &application,
                                                     const JobContext &context);

/// Does the job "install-signed": copies `archive`, verifies the copy with the keys of `application`, unpacks
/// it next to the application, and becomes the installer tool for the unpacked application, if that is newer.
/// Other statements in `words` about the update have no effect. Builds are not compared when the installer
/// restores the previous application that an interrupted installation has kept.
[[nodiscard]] int installSigned(const std::vector<std::string> &words, const std::string &application,
                                const posix::Descriptor &archive, const JobContext &context);

} // namespace tx::installer
