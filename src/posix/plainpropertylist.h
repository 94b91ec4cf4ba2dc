// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Property lists for statically linked tools: no Qt, no other library. Thread: any.
///
/// The parser is strict, so that the tools and the framework never interpret a file differently: if both it
/// and the framework's `readPropertyList` accept a file, they read the same values.
namespace tx::plain {

struct Value;
struct Member;
using Array = std::vector<Value>;
/// In the order of the document.
using Dictionary = std::vector<Member>;
struct Date {
    double seconds; ///< since 2001-01-01 UTC
};
struct Data {
    std::string bytes;
};

/// Whole numbers from 2^63 on become negative, as in the framework.
struct Value {
    std::variant<bool, int64_t, double, std::string, Date, Data, Array, Dictionary> content;

    /// Returns a member of the dictionary; null if this is not a dictionary or has no such member.
    [[nodiscard]] const Value *member(std::string_view key) const;
    /// Returns the string; null if this is not a string.
    [[nodiscard]] const std::string *text() const { return std::get_if<std::string>(&content); }
};
/// One member of a dictionary. Not a std::pair: clang rejects a vector of pairs of an incomplete type.
struct Member {
    std::string key;
    Value value;
};

/// Larger documents are refused. Bytes.
inline constexpr size_t maximumDocument = 4 << 20;

/// Parses an XML (UTF-8) or binary property list. Absent for any other format, and for a list that is
/// damaged, is nested more than 128 levels deep, repeats a key, contains a string that is not UTF-8 or has a
/// NUL character, declares entities, or refers so often to the same values that it would become much larger
/// than the file.
[[nodiscard]] std::optional<Value> readPropertyList(std::string_view document);

/// The list as an XML document. Characters that XML cannot hold are replaced by U+FFFD.
[[nodiscard]] std::string writePropertyList(const Value &value);

namespace detail {
/// The two halves of the reader.
[[nodiscard]] std::optional<Value> readXml(std::string_view document);
[[nodiscard]] std::optional<Value> readBinary(std::string_view document);
inline constexpr int maximumDepth = 128;
[[nodiscard]] bool hasDistinctKeys(const Dictionary &dictionary);
/// True for UTF-8 without NUL and without surrogates.
[[nodiscard]] bool isText(std::string_view text);
void appendUtf8(std::string &text, uint32_t character);
} // namespace detail

} // namespace tx::plain
