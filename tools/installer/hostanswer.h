// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <string>

namespace tx::installer {

/// What the host that starts this tool reads on the tool's standard output before it ends: the line "ready",
/// or why the tool cannot do its work. Whoever started it by hand reads the reason on the error output only.
class HostAnswer {
public:
    /// A line that was reported; it becomes part of the reason unless "ready" is said.
    void note(const std::string &line);
    /// Says "ready" and points the standard output at /dev/null. False when nobody reads it any more: the
    /// host has gone, or it has given up and stays.
    [[nodiscard]] bool ready();
    /// True when "ready" was said into a pipe whose other end is closed, and was never read: the host gave up
    /// at that moment, has told the user so, and must not be replaced when it ends one day.
    [[nodiscard]] bool unheard() const;
    /// Says what was noted.
    void refuse();

private:
    posix::Descriptor m_host; ///< the pipe to the host, once "ready" was said
    std::string m_reason;
    bool m_answered = false;
};

} // namespace tx::installer
