// SPDX-License-Identifier: MIT
#pragma once

#include "posix/posixfiles.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace tx::installer {

/// The most that a job takes in bytes: its words, each with the NUL behind it.
constexpr size_t longestJob = 64 << 10;

/// A job as it came from the host.
struct JobMessage {
    std::string words;
    posix::Descriptor archive; ///< not open when none was sent
};

/// Receives the one message that a job is, over the socket of packets `socket`, which keeps the limits of a
/// message by itself. At most one descriptor may come with it, and only one that problemOfArchive() accepts.
/// Every other one is closed. Empty on success; else why the message is refused, also when it does not come
/// within `limit`.
[[nodiscard]] std::string receiveJob(int socket, std::chrono::milliseconds limit, JobMessage &message);

/// Empty when the descriptor reads a regular file on a disk or in memory; else what it is. What is read of
/// pipes, devices and files that the kernel makes up (/proc) has no size, no end, or is not the sender's.
[[nodiscard]] std::string problemOfArchive(int descriptor);

} // namespace tx::installer
