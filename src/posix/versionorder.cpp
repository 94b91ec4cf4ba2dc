// SPDX-License-Identifier: MIT
#include "posix/versionorder.h"

namespace tx::versions {

namespace {

struct AsciiClasses {
    [[nodiscard]] static Kind kind(char c) { return kindOfAscii(static_cast<unsigned char>(c)); }
    [[nodiscard]] static int digit(char c) { return c - '0'; }
};

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
}

} // namespace

std::optional<int> compareAscii(std::string_view a, std::string_view b) {
    if (!isAscii(a) || !isAscii(b))
        return std::nullopt;
    return compare(a, b, AsciiClasses());
}

} // namespace tx::versions
