// SPDX-License-Identifier: MIT
#include "posix/systemfiles.h"

#include "posix/readwrite.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace tx::machine {

namespace {

constexpr uint64_t mebibyte = 1ULL << 20;
constexpr uint64_t gibibyte = 1ULL << 30;

/// Length of the UTF-8 sequence at `i`; 0 when there is none.
size_t sequenceLength(const std::string &text, size_t i) {
    const auto first = static_cast<unsigned char>(text[i]);
    const size_t length = first < 0x80                      ? 1
                          : (first >= 0xC2 && first < 0xE0) ? 2
                          : (first >> 4) == 0xE             ? 3
                          : (first >= 0xF0 && first < 0xF5) ? 4
                                                            : 0;
    if (length == 0 || i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

} // namespace

std::string readAll(const std::string &path) {
    constexpr size_t most = 16 * mebibyte;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return {};
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t n = read(file, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || content.size() > most)
            break;
        content.append(buffer, static_cast<size_t>(n));
    }
    close(file);
    return content;
}

std::string cleaned(const std::string &text) {
    constexpr size_t longest = 200;
    std::string result;
    for (size_t i = 0; i < text.size() && result.size() < longest;) {
        const size_t length = sequenceLength(text, i);
        if (length == 0)
            result += '?';
        else if (length > 1 || static_cast<unsigned char>(text[i]) >= ' ')
            result.append(text, i, length);
        i += std::max<size_t>(length, 1);
    }
    const size_t begin = result.find_first_not_of(' ');
    return begin == std::string::npos ? std::string()
                                      : result.substr(begin, result.find_last_not_of(' ') - begin + 1);
}

std::string readLine(const std::string &path) {
    const std::string content = readAll(path);
    return cleaned(content.substr(0, content.find('\n')));
}

std::optional<uint64_t> readNumber(const std::string &path, int base) {
    const std::string text = readLine(path);
    char *end = nullptr;
    const uint64_t value = std::strtoull(text.c_str(), &end, base);
    return text.empty() || *end != '\0' ? std::nullopt : std::optional(value);
}

std::vector<std::string> namesIn(const std::string &path) {
    std::vector<std::string> names;
    (void)posix::namesIn(path, names);
    std::erase_if(names, [](const std::string &name) { return name[0] == '.'; });
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> valuesOf(const std::string &text, const std::string &name) {
    std::vector<std::string> values;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(':');
        if (colon != std::string::npos &&
            cleaned(line.substr(0, line.find_last_not_of(" \t", colon == 0 ? 0 : colon - 1) + 1)) == name)
            values.push_back(cleaned(line.substr(colon + 1)));
    }
    return values;
}

std::string memoryText(uint64_t bytes) {
    return bytes >= gibibyte && bytes % gibibyte == 0 ? std::to_string(bytes / gibibyte) + " GB"
                                                      : std::to_string(bytes / mebibyte) + " MB";
}

} // namespace tx::machine
