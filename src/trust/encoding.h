// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The textual forms of bytes, numbers, dates and names in keys and signatures. Each value has exactly one
/// form, and the parsers refuse every other one.
namespace tx::trust {

[[nodiscard]] std::string base64(const unsigned char *bytes, size_t size);
/// Fills exactly `size` bytes. Returns false unless `text` is what base64() makes of them. Its time depends
/// on the text, which must not be secret.
[[nodiscard]] bool decodeBase64(std::string_view text, unsigned char *bytes, size_t size);
/// The same for secret bytes: takes ten times as long, but always the same time.
[[nodiscard]] bool decodeSecretBase64(std::string_view text, unsigned char *bytes, size_t size);

/// Encodes a value of a trusted comment: %XX replaces every byte of `text` other than A-Z a-z 0-9 . _ and
/// "-". It also replaces a "-" after another "-", because an XML comment must not contain "--".
[[nodiscard]] std::string encodeValue(std::string_view text);
/// Decodes a value of encodeValue(); absent if `value` is not such a value, or the result is not UTF-8.
[[nodiscard]] std::optional<std::string> decodeValue(std::string_view value);

/// "0", or up to 19 digits of which the first is not 0.
[[nodiscard]] std::optional<uint64_t> parseNumber(std::string_view text);

/// Seconds since 1970 of YYYY-MM-DDTHH:MM:SSZ; absent for other forms and for days and times that do not
/// exist.
[[nodiscard]] std::optional<int64_t> parseDate(std::string_view text);
/// Formats a date of the years 0 to 9999 in this form; empty for other years.
[[nodiscard]] std::string formatDate(int64_t seconds);

/// `text` for an error: at most 60 bytes of it, control characters and bytes that are not ASCII as %XX.
[[nodiscard]] std::string shown(std::string_view text);

} // namespace tx::trust
