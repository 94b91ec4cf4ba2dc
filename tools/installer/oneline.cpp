// SPDX-License-Identifier: MIT
#include "installer/oneline.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace tx::installer {

namespace {

/// Reads one UTF-8 character at `start`: its length in bytes, 0 if it is invalid.
size_t readCharacter(const std::string &text, size_t start, uint32_t &character) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byteAt(start);
    const size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (length == 0 || first > 0xF4 || start + length > text.size())
        return 0;
    character = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byteAt(start + i) & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byteAt(start + i) & 0x3F);
    }
    const bool isShortest = length < 3 || character >= (length == 3 ? 0x800U : 0x10000U);
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return isShortest && !isSurrogate && character <= 0x10FFFF ? length : 0;
}

/// True for a character that ends a line or is displayed as something else.
bool isTreacherous(uint32_t c) {
    struct Range {
        uint32_t first;
        uint32_t last;
    };
    constexpr Range ranges[] = {{0, 0x1F},        {0x7F, 0x9F},     {0xAD, 0xAD},      {0x61C, 0x61C},
                                {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},  {0x2060, 0x206F},
                                {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
    for (const Range &range : ranges) {
        if (c >= range.first && c <= range.last)
            return true;
    }
    return false;
}

std::string escaped(char kind, uint32_t number) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "\\%c{%x}", kind, static_cast<unsigned>(number));
    return buffer;
}

} // namespace

std::string onOneLine(const std::string &text) {
    std::string result;
    for (size_t i = 0; i < text.size();) {
        uint32_t character = 0;
        const size_t length = readCharacter(text, i, character);
        if (length == 0)
            result += escaped('x', static_cast<unsigned char>(text[i]));
        else if (isTreacherous(character))
            result += escaped('u', character);
        else
            result += character == '\\' ? "\\\\" : text.substr(i, length);
        i += length == 0 ? 1 : length;
    }
    return result;
}

} // namespace tx::installer
