// SPDX-License-Identifier: MIT
#pragma once

#include "installer/jobs.h"
#include "posix/plainpropertylist.h"
#include "posix/posixfiles.h"
#include "trust/appinfo.h"

#include <string>
#include <vector>

namespace tx::installer {

/// The Info.plist of the bundle at `path`, whose open folder is `bundle`: nobody can put another bundle into
/// its place meanwhile. No link is followed, and as root nobody but root may be able to write to it. Fault:
/// File.
[[nodiscard]] trust::Outcome<plain::Value> readInfo(const posix::Descriptor &bundle, const std::string &path,
                                                    const JobContext &context);

/// What the application that this program is a part of says about trust. Faults: File, Keys.
[[nodiscard]] trust::Outcome<trust::AppInfo> trustOf(const std::string &application,
                                                     const JobContext &context);

/// The job "install-signed": verifies `archive` with the keys of `application`, unpacks its own copy of it
/// beside the application, and becomes the installer tool for what came out, if that is newer than the
/// application. Whatever else the words say about the update does not count. The previous application is no
/// update: the installer puts it back where an interrupted installation has kept it, whatever its build is.
[[nodiscard]] int installSigned(const std::vector<std::string> &words, const std::string &application,
                                const posix::Descriptor &archive, const JobContext &context);

} // namespace tx::installer
