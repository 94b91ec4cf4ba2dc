// SPDX-License-Identifier: MIT
#include "trust/encoding.h"

#include "posix/plainpropertylist.h"

#include <sodium/utils.h>

#include <array>
#include <chrono>
#include <cstdio>

namespace tx::trust {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isPlain(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || isDigit(c) || c == '.' || c == '_';
}

/// Whether the byte at `i` needs no %XX.
bool isWrittenUnchanged(std::string_view text, size_t i) {
    return isPlain(text[i]) || (text[i] == '-' && (i == 0 || text[i - 1] != '-'));
}

void appendEscaped(std::string &text, char c) {
    const auto byte = static_cast<unsigned char>(c);
    text += '%';
    text += hexDigits[byte >> 4U];
    text += hexDigits[byte & 0xFU];
}

/// In the values of characters that are none of Base64.
constexpr uint8_t notBase64 = 0x80;

/// The value of each character in Base64.
constexpr std::array<uint8_t, 256> makeBase64Values() {
    constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<uint8_t, 256> values{};
    values.fill(notBase64);
    for (size_t i = 0; i < characters.size(); ++i)
        values[static_cast<unsigned char>(characters[i])] = static_cast<uint8_t>(i);
    return values;
}
constexpr std::array<uint8_t, 256> base64Values = makeBase64Values();

/// The number in the digits at `from`.
int number(std::string_view text, size_t from, size_t count) {
    int result = 0;
    for (const char c : text.substr(from, count))
        result = result * 10 + (c - '0');
    return result;
}

} // namespace

std::string base64(const unsigned char *bytes, size_t size) {
    std::string result(sodium_base64_ENCODED_LEN(size, sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(result.data(), result.size(), bytes, size, sodium_base64_VARIANT_ORIGINAL);
    result.pop_back(); // the terminating NUL
    return result;
}

bool decodeBase64(std::string_view text, unsigned char *bytes, size_t size) {
    if (text.size() != (size + 2) / 3 * 4)
        return false;
    const auto value = [](char c) { return uint32_t(base64Values[static_cast<unsigned char>(c)]); };
    uint32_t all = 0; // has a bit of notBase64 if one of the characters is none
    size_t from = 0;
    size_t to = 0;
    for (; to + 3 <= size; from += 4, to += 3) {
        const uint32_t a = value(text[from]);
        const uint32_t b = value(text[from + 1]);
        const uint32_t c = value(text[from + 2]);
        const uint32_t d = value(text[from + 3]);
        all |= a | b | c | d;
        bytes[to] = static_cast<unsigned char>(a << 2U | b >> 4U);
        bytes[to + 1] = static_cast<unsigned char>(b << 4U | c >> 2U);
        bytes[to + 2] = static_cast<unsigned char>(c << 6U | d);
    }
    if (to == size)
        return (all & notBase64) == 0;
    // One or two bytes are left. The bits that they do not need must be zero, so that bytes have one form.
    const bool areTwo = to + 2 == size;
    const uint32_t a = value(text[from]);
    const uint32_t b = value(text[from + 1]);
    const uint32_t c = areTwo ? value(text[from + 2]) : 0;
    const uint32_t unused = areTwo ? c & 0x3U : b & 0xFU;
    bytes[to] = static_cast<unsigned char>(a << 2U | b >> 4U);
    if (areTwo)
        bytes[to + 1] = static_cast<unsigned char>(b << 4U | c >> 2U);
    return ((all | a | b | c) & notBase64) == 0 && unused == 0 &&
           text.substr(from + (areTwo ? 3 : 2)) == (areTwo ? "=" : "==");
}

bool decodeSecretBase64(std::string_view text, unsigned char *bytes, size_t size) {
    // What libsodium lets through does not matter: the bytes have one written form, which is compared.
    (void)sodium_base642bin(bytes, size, text.data(), text.size(), nullptr, nullptr, nullptr,
                            sodium_base64_VARIANT_ORIGINAL);
    std::string again = base64(bytes, size);
    const bool isSame = again == text;
    sodium_memzero(again.data(), again.size());
    return isSame;
}

std::string encodeValue(std::string_view text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (isWrittenUnchanged(text, i))
            result += text[i];
        else
            appendEscaped(result, text[i]);
    }
    return result;
}

std::optional<std::string> decodeValue(std::string_view value) {
    size_t unchanged = 0;
    while (unchanged < value.size() && isWrittenUnchanged(value, unchanged))
        ++unchanged;
    if (unchanged == value.size())
        return std::string(value);
    std::string result;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '%') {
            result += value[i];
            continue;
        }
        if (value.size() - i < 3)
            return std::nullopt;
        const size_t high = hexDigits.find(value[i + 1]);
        const size_t low = hexDigits.find(value[i + 2]);
        result += static_cast<char>(high << 4U | low); // of other digits it makes what the comparison refuses
        i += 2;
    }
    if (encodeValue(result) != value || !plain::detail::isText(result))
        return std::nullopt;
    return result;
}

std::optional<uint64_t> parseNumber(std::string_view text) {
    constexpr size_t mostDigits = 19; // so that every number fits into 64 bits
    if (text.empty() || text.size() > mostDigits || (text[0] == '0' && text.size() > 1))
        return std::nullopt;
    uint64_t result = 0;
    for (const char c : text) {
        if (!isDigit(c))
            return std::nullopt;
        result = result * 10 + static_cast<uint64_t>(c - '0');
    }
    return result;
}

std::optional<int64_t> parseDate(std::string_view text) {
    using namespace std::chrono;
    constexpr std::string_view form = "0000-00-00T00:00:00Z";
    if (text.size() != form.size())
        return std::nullopt;
    for (size_t i = 0; i < form.size(); ++i) {
        if (form[i] == '0' ? !isDigit(text[i]) : text[i] != form[i])
            return std::nullopt;
    }
    const year_month_day date{year(number(text, 0, 4)), month(unsigned(number(text, 5, 2))),
                              day(unsigned(number(text, 8, 2)))};
    const int hour = number(text, 11, 2);
    const int minute = number(text, 14, 2);
    const int second = number(text, 17, 2);
    // Leap seconds are not written: 60 is no second.
    if (!date.ok() || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    const seconds time = sys_days(date).time_since_epoch() + hours(hour) + minutes(minute) + seconds(second);
    return time.count();
}

std::string formatDate(int64_t time) {
    using namespace std::chrono;
    const sys_seconds point{seconds(time)};
    const sys_days midnight = floor<days>(point);
    const year_month_day date{midnight};
    const hh_mm_ss clock{point - midnight};
    const int year = int(date.year());
    if (year < 0 || year > 9999)
        return {};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", year, unsigned(date.month()),
                  unsigned(date.day()), int(clock.hours().count()), int(clock.minutes().count()),
                  int(clock.seconds().count()));
    return text.data();
}

std::string shown(std::string_view text) {
    constexpr size_t most = 60;
    std::string result;
    for (const char c : text.substr(0, most)) {
        if (c >= ' ' && c <= '~')
            result += c;
        else
            appendEscaped(result, c);
    }
    return text.size() > most ? result + "..." : result;
}

} // namespace tx::trust
