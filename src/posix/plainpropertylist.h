// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// Property lists for the tools that stand alone: no Qt, no other library. Thread: any.
///
/// The reader is strict, so that the tools and the framework never see two different things in one file: what
/// both it and the framework's `readPropertyList` accept, they read as the same values.
namespace tx::plain {

struct Value;
using Array = std::vector<Value>;
/// In the order of the document.
using Dictionary = std::vector<std::pair<std::string, Value>>;
struct Date {
    double seconds; ///< since 2001-01-01 UTC
};
struct Data {
    std::string bytes;
};

/// Whole numbers from 2^63 on become negative, as in the framework.
struct Value {
    std::variant<bool, int64_t, double, std::string, Date, Data, Array, Dictionary> content;

    /// The member of a dictionary; null when this is none or it has no such member.
    [[nodiscard]] const Value *member(std::string_view key) const;
    /// The text; null when this is none.
    [[nodiscard]] const std::string *text() const { return std::get_if<std::string>(&content); }
};

/// Larger documents are refused. Bytes.
inline constexpr size_t maximumDocument = 4 << 20;

/// Reads an XML (UTF-8) or binary property list. Absent for anything else, for one that is damaged, nested
/// more than 128 deep, holds a key twice, a text that is not UTF-8 or a NUL character, declares entities, or
/// refers to so many values, by repetition, that it is larger than it looks.
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
