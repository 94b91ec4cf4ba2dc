// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Functions that write a whole buffer or list a whole folder. Thread: any.
namespace tx::posix {

/// Writes all bytes; repeats the call after partial writes and signals. Returns the number of bytes written.
/// If it is less than `size`, errno gives the reason.
[[nodiscard]] size_t writeAll(int fd, const void *data, size_t size);

/// Lists the names in a folder, without "." and "..", in the order of the file system. Returns 0 or an errno
/// value; on an error `names` contains the names that were read before it.
[[nodiscard]] int namesIn(int folder, std::vector<std::string> &names);
[[nodiscard]] int namesIn(const std::string &path, std::vector<std::string> &names);

} // namespace tx::posix
