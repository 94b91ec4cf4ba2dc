// SPDX-License-Identifier: MIT
#include "report/jsontext.h"

#include <array>
#include <cstdio>

namespace tx::report {

std::string jsonText(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (static_cast<unsigned char>(c) >= 0x20) {
            result += c;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
        result += escape.data();
    }
    return result += '"';
}

} // namespace tx::report
