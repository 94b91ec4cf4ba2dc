// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace tx::tools {

/// Lowers the rights of this process for good, before it reads an archive: a fault in a decoder must not give
/// the archive's author more than the folder that the archive is unpacked into. Returns an empty string on
/// success, otherwise which step failed and why; the process must then read nothing.
///
/// - Closes all descriptors except the standard streams.
/// - Programs that it starts get no additional rights, and it leaves no core dumps, which would contain files
///   of the user.
/// - Limits the address space, processor time and the size of each file. `unpacked` is the permitted size of
///   the archive's content in bytes.
/// - With Landlock: it can open, create and remove files only in `folder`, an absolute path, and it cannot
///   open TCP connections. Without Landlock (a kernel before 5.19, or one that was built or started without
///   it), this step is left out.
[[nodiscard]] std::string lowerRights(const std::string &folder, uint64_t unpacked);

/// The size of content for which the limits are made at least, in bytes.
constexpr uint64_t usualUnpackedSize = uint64_t(8) << 30;

} // namespace tx::tools
