// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <string>

namespace tx::installer {

/// The answer to the host on the tool's standard output, which the host reads before it ends: the line
/// "ready", or why the tool cannot work. A user who starts the tool by hand gets the reason on standard error
/// only.
class HostAnswer {
public:
    /// A line that was reported; it becomes part of the reason unless "ready" is said.
    void note(const std::string &line);
    /// Writes "ready" and redirects standard output to /dev/null. Returns false if nobody reads it any more:
    /// the host has ended, or has given up and continues.
    [[nodiscard]] bool ready();
    /// Returns true if "ready" was written to a pipe whose other end was closed before anybody read it: the
    /// host had just given up and told its user. It must not be replaced when it ends later.
    [[nodiscard]] bool unheard() const;
    /// Says what was noted.
    void refuse();

private:
    posix::Descriptor m_host; ///< the pipe to the host, once "ready" was said
    std::string m_reason;
    bool m_answered = false;
};

} // namespace tx::installer
