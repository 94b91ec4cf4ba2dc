// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace tx::installer {

/// The largest size of a job in bytes: its words, each terminated by NUL.
constexpr size_t longestJob = 64 << 10;

/// A job that was received from the host.
struct JobMessage {
    std::string words;
    posix::Descriptor archive; ///< not open if the host sent none
};

/// Receives a job, which is exactly one message, from the packet socket `socket`. One descriptor may come
/// with it, and problemOfArchive() must accept that descriptor. All other descriptors are closed. Returns an
/// empty string on success, else why the message is refused. A message that does not arrive within `limit` is
/// refused, too.
[[nodiscard]] std::string receiveJob(int socket, std::chrono::milliseconds limit, JobMessage &message);

/// Checks that the descriptor reads a regular file on a disk or in memory. Returns an empty string if so,
/// else what the descriptor is. Pipes, devices and files that the kernel generates (/proc) may have no size
/// or no end, or their content may not come from the sender.
[[nodiscard]] std::string problemOfArchive(int descriptor);

} // namespace tx::installer
