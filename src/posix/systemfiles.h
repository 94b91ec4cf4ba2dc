// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tx::machine {

/// The content of a file, at most 16 MiB of it; empty when it cannot be read.
[[nodiscard]] std::string readAll(const std::string &path);
/// Its first line as a text for people: UTF-8 without control characters, at most 200 bytes, no blanks at the
/// ends.
[[nodiscard]] std::string readLine(const std::string &path);
[[nodiscard]] std::optional<uint64_t> readNumber(const std::string &path, int base = 10);
/// Names in a folder, sorted.
[[nodiscard]] std::vector<std::string> namesIn(const std::string &path);

[[nodiscard]] std::string cleaned(const std::string &text);
/// The values of the lines "name : value", in order.
[[nodiscard]] std::vector<std::string> valuesOf(const std::string &text, const std::string &name);

/// "16 GB" for whole gibibytes, else "512 MB".
[[nodiscard]] std::string memoryText(uint64_t bytes);

} // namespace tx::machine
