// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Writing a whole buffer and reading a whole folder. Thread: any.
namespace tx::posix {

/// Writes all bytes, with as many calls as that takes, also when signals interrupt them. Answers how many
/// were written; if fewer than `size`, errno says why.
[[nodiscard]] size_t writeAll(int fd, const void *data, size_t size);

/// The names in a folder but "." and "..", in the order of the file system. Answers 0 or an errno value;
/// `names` then has those that were read before.
[[nodiscard]] int namesIn(int folder, std::vector<std::string> &names);
[[nodiscard]] int namesIn(const std::string &path, std::vector<std::string> &names);

} // namespace tx::posix
