// SPDX-License-Identifier: MIT
// The small part of XML that property lists use. The only entities are the five of XML itself: a document
// type with its own declarations is refused.
#include "posix/plainpropertylist.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <utility>

namespace tx::plain {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::optional<Value> integerFrom(std::string_view text) {
    const bool isNegative = !text.empty() && text.front() == '-';
    if (isNegative)
        text.remove_prefix(1);
    const bool isHexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (isHexadecimal)
        text.remove_prefix(2);
    uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), magnitude, isHexadecimal ? 16 : 10);
    constexpr uint64_t lowest = uint64_t(1) << 63U;
    if (error != std::errc() || end != text.data() + text.size() || (isNegative && magnitude > lowest))
        return std::nullopt;
    return Value{static_cast<int64_t>(isNegative ? 0 - magnitude : magnitude)};
}

std::optional<Value> realFrom(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return Value{number};
}

/// 2026-01-31T23:59:59Z
std::optional<Value> dateFrom(std::string_view text) {
    constexpr std::string_view shape = "0000-00-00T00:00:00Z";
    if (text.size() != shape.size())
        return std::nullopt;
    for (size_t i = 0; i < shape.size(); ++i) {
        if (shape[i] == '0' ? !isDigit(text[i]) : text[i] != shape[i])
            return std::nullopt;
    }
    const auto number = [&](size_t at, size_t digits) {
        int value = 0;
        std::from_chars(text.data() + at, text.data() + at + digits, value);
        return value;
    };
    const std::chrono::year_month_day day{std::chrono::year(number(0, 4)),
                                          std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                          std::chrono::day(static_cast<unsigned>(number(8, 2)))};
    const int64_t hour = number(11, 2);
    const int64_t minute = number(14, 2);
    const int64_t second = number(17, 2);
    if (!day.ok() || hour > 23 || minute > 59 || second > 59)
        return std::nullopt;
    // Not time_t, which ends in 2038 on some systems.
    const int64_t days = std::chrono::sys_days(day).time_since_epoch().count();
    const int64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second;
    constexpr double reference = 978307200;
    constexpr double furthest = 2147483646;
    const double sinceReference = static_cast<double>(seconds) - reference;
    if (!(std::fabs(sinceReference) < furthest))
        return std::nullopt;
    return Value{Date{sinceReference}};
}

std::optional<Value> dataFrom(std::string_view text) {
    std::string bytes;
    uint32_t bits = 0;
    int digits = 0;
    int padding = 0;
    for (const char c : text) {
        if (isSpace(c))
            continue;
        static constexpr std::string_view alphabet =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        const size_t digit = alphabet.find(c);
        if (c == '=' ? digits < 2 : digit == std::string_view::npos || padding > 0)
            return std::nullopt;
        padding += c == '=' ? 1 : 0;
        bits = bits << 6U | (c == '=' ? 0U : static_cast<uint32_t>(digit));
        if (++digits < 4)
            continue;
        for (int k = 0; k < 3 - padding; ++k)
            bytes += static_cast<char>(bits >> (16 - 8 * k) & 0xFFU);
        digits = 0;
        bits = 0;
    }
    if (digits != 0 || padding > 2)
        return std::nullopt;
    return Value{Data{std::move(bytes)}};
}

/// Removes a string in quotes from the front; absent if there is none.
std::optional<std::string_view> takeQuoted(std::string_view &text) {
    if (text.empty() || (text.front() != '"' && text.front() != '\''))
        return std::nullopt;
    const size_t end = text.find(text.front(), 1);
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::string_view result = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    const bool isPlain = std::all_of(result.begin(), result.end(), [](char c) { return c >= ' '; }) &&
                         result.find_first_of("<>[]&") == std::string_view::npos;
    return isPlain ? std::optional(result) : std::nullopt;
}

/// What is between the name of a tag and its end: name="value", any number of times. False for anything else.
/// `encoding` becomes the value of the attribute of that name.
bool readAttributes(std::string_view text, std::string_view &encoding) {
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        size_t length = 0;
        while (length < text.size() && text[length] >= 'a' && text[length] <= 'z')
            ++length;
        const std::string_view name = text.substr(0, length);
        text = trimmed(text.substr(length));
        if (name.empty() || text.empty() || text.front() != '=')
            return false;
        text = trimmed(text.substr(1));
        const auto value = takeQuoted(text);
        if (!value || (!text.empty() && !isSpace(text.front())))
            return false;
        if (name == "encoding")
            encoding = *value;
    }
    return true;
}

/// plist PUBLIC "..." "...", or less. Declarations in brackets, where entities come from, are no part of it.
bool isPlainDocumentType(std::string_view text) {
    if (text.empty() || !isSpace(text.front()) || trimmed(text).substr(0, 5) != "plist")
        return false;
    text = trimmed(trimmed(text).substr(5));
    if (text.empty())
        return true;
    const bool isPublic = text.substr(0, 6) == "PUBLIC";
    if (!isPublic && text.substr(0, 6) != "SYSTEM")
        return false;
    text = trimmed(text.substr(6));
    for (int i = isPublic ? 0 : 1; i < 2; ++i) {
        if (!takeQuoted(text))
            return false;
        text = trimmed(text);
    }
    return text.empty();
}

class XmlReader {
public:
    explicit XmlReader(std::string_view document)
        : m_rest(document) {}

    std::optional<Value> read() {
        if (!prolog())
            return std::nullopt;
        const std::optional<Tag> list = tag();
        if (!list || list->name != "plist" || list->isEnd || list->isEmpty)
            return std::nullopt;
        auto value = element(0);
        if (!value || !endOf("plist") || !between() || !m_rest.empty())
            return std::nullopt;
        return value;
    }

private:
    struct Tag {
        std::string_view name;
        bool isEnd = false;
        bool isEmpty = false;
    };

    bool take(std::string_view text) {
        if (m_rest.substr(0, text.size()) != text)
            return false;
        m_rest.remove_prefix(text.size());
        return true;
    }
    /// Reads up to and including `end`; returns what is before it.
    std::optional<std::string_view> takeUntil(std::string_view end) {
        const size_t at = m_rest.find(end);
        if (at == std::string_view::npos)
            return std::nullopt;
        const std::string_view result = m_rest.substr(0, at);
        m_rest.remove_prefix(at + end.size());
        return result;
    }
    /// Blanks and comments.
    bool between() {
        for (;;) {
            while (!m_rest.empty() && isSpace(m_rest.front()))
                m_rest.remove_prefix(1);
            if (!take("<!--"))
                return true;
            if (!takeUntil("-->"))
                return false;
        }
    }
    bool prolog() {
        if (take("<?xml")) {
            const auto declaration = takeUntil("?>");
            if (!declaration || !isUtf8(*declaration))
                return false;
        }
        if (!between())
            return false;
        if (take("<!DOCTYPE")) {
            const auto type = takeUntil(">");
            if (!type || !isPlainDocumentType(*type))
                return false;
        }
        return between();
    }
    static bool isUtf8(std::string_view declaration) {
        std::string_view encoding = "UTF-8";
        if (declaration.empty() || !isSpace(declaration.front()) || !readAttributes(declaration, encoding))
            return false;
        std::string name(encoding);
        for (char &c : name)
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        return name == "UTF-8" || name == "US-ASCII";
    }

    /// The next tag, without blanks and comments before it.
    std::optional<Tag> tag() {
        if (!between() || !take("<"))
            return std::nullopt;
        Tag result;
        result.isEnd = take("/");
        size_t length = 0;
        while (length < m_rest.size() && m_rest[length] >= 'a' && m_rest[length] <= 'z')
            ++length;
        result.name = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        std::optional<std::string_view> rest = takeUntil(">");
        if (!rest)
            return std::nullopt;
        std::string_view attributes = trimmed(*rest);
        if (!attributes.empty() && attributes.back() == '/') {
            result.isEmpty = true;
            attributes = trimmed(attributes.substr(0, attributes.size() - 1));
        }
        const bool mayHaveVersion = result.name == "plist" && !result.isEnd && isSpace(rest->front());
        std::string_view ignored;
        if ((result.isEnd && result.isEmpty) ||
            (!attributes.empty() && (!mayHaveVersion || !readAttributes(attributes, ignored))))
            return std::nullopt;
        return result;
    }
    bool endOf(std::string_view name) {
        const auto end = tag();
        return end && end->isEnd && end->name == name;
    }

    /// The text up to the end of the element.
    std::optional<std::string> text(std::string_view name) {
        std::string result;
        for (;;) {
            const size_t at = m_rest.find_first_of("<&");
            if (at == std::string_view::npos)
                return std::nullopt;
            result += m_rest.substr(0, at);
            m_rest.remove_prefix(at);
            if (take("<![CDATA[")) {
                const auto literal = takeUntil("]]>");
                if (!literal)
                    return std::nullopt;
                result += *literal;
            } else if (take("<!--")) {
                if (!takeUntil("-->"))
                    return std::nullopt;
            } else if (take("&")) {
                const auto entity = takeUntil(";");
                if (!entity || !appendEntity(result, *entity))
                    return std::nullopt;
            } else {
                break;
            }
            // Other readers take a number or a date as it is written.
            if (name != "string" && name != "key")
                return std::nullopt;
        }
        const bool isPlain = std::none_of(result.begin(), result.end(), [](unsigned char c) {
            return c < 0x20 && !isSpace(static_cast<char>(c));
        });
        if (!endOf(name) || !isPlain || !detail::isText(result))
            return std::nullopt;
        return result;
    }
    static bool appendEntity(std::string &text, std::string_view entity) {
        constexpr std::pair<std::string_view, char> known[] = {
            {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
        for (const auto &[name, character] : known) {
            if (entity == name) {
                text += character;
                return true;
            }
        }
        if (entity.substr(0, 1) != "#")
            return false;
        entity.remove_prefix(1);
        const bool isHexadecimal = entity.substr(0, 1) == "x";
        if (isHexadecimal)
            entity.remove_prefix(1);
        uint32_t character = 0;
        const auto [end, error] =
            std::from_chars(entity.data(), entity.data() + entity.size(), character, isHexadecimal ? 16 : 10);
        if (error != std::errc() || end != entity.data() + entity.size() || character == 0 ||
            character > 0x10FFFF)
            return false;
        detail::appendUtf8(text, character);
        return true;
    }

    /// One value.
    std::optional<Value> element(int depth) {
        const auto start = tag();
        if (!start || start->isEnd || depth > detail::maximumDepth)
            return std::nullopt;
        const std::string_view name = start->name;
        if (name == "true" || name == "false") {
            if (!start->isEmpty && !endOf(name))
                return std::nullopt;
            return Value{name == "true"};
        }
        if (name == "array")
            return array(*start, depth);
        if (name == "dict")
            return dictionary(*start, depth);
        const auto content = start->isEmpty ? std::string() : text(name);
        if (!content)
            return std::nullopt;
        if (name == "string")
            return Value{*content};
        if (name == "data")
            return dataFrom(*content);
        const std::string_view word = trimmed(*content);
        if (name == "integer")
            return integerFrom(word);
        if (name == "real")
            return realFrom(word);
        if (name == "date")
            return dateFrom(word);
        return std::nullopt;
    }
    /// True at the end of the element, which is taken.
    bool ends(std::string_view name) {
        const std::string_view before = m_rest;
        if (endOf(name))
            return true;
        m_rest = before;
        return false;
    }
    std::optional<Value> array(const Tag &start, int depth) {
        Array result;
        while (!start.isEmpty && !ends("array")) {
            auto value = element(depth + 1);
            if (!value)
                return std::nullopt;
            result.push_back(std::move(*value));
        }
        return Value{std::move(result)};
    }
    std::optional<Value> dictionary(const Tag &start, int depth) {
        Dictionary result;
        while (!start.isEmpty && !ends("dict")) {
            const auto key = tag();
            if (!key || key->name != "key" || key->isEnd || key->isEmpty)
                return std::nullopt;
            auto name = text("key");
            auto value = name ? element(depth + 1) : std::nullopt;
            if (!value)
                return std::nullopt;
            result.push_back({std::move(*name), std::move(*value)});
        }
        if (!detail::hasDistinctKeys(result))
            return std::nullopt;
        return Value{std::move(result)};
    }

    std::string_view m_rest;
};

} // namespace

namespace detail {

std::optional<Value> readXml(std::string_view document) {
    // A NUL character is never valid, and ends the strings of other readers.
    if (document.find('\0') != std::string_view::npos)
        return std::nullopt;
    return XmlReader(document).read();
}

} // namespace detail

} // namespace tx::plain
