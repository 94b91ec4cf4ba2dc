// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tx::installer {

/// `text` for one line of a log: control characters, separators of lines, characters that turn the writing
/// direction, bytes that are not UTF-8 and the backslash are escaped, as `\u{a}` and `\x{ff}`, so that a
/// word that somebody else chose can neither pass for another line nor for something else than it is.
[[nodiscard]] std::string onOneLine(const std::string &text);

} // namespace tx::installer
