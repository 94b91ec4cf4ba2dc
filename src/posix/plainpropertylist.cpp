// SPDX-License-Identifier: MIT
#include "posix/plainpropertylist.h"

#include "posix/binaryobjects.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

namespace tx::plain {

namespace {

/// More than a document of the permitted size needs if it refers to each value once.
constexpr size_t mostValues = 1 << 18;

class BinaryReader {
public:
    explicit BinaryReader(std::string_view document)
        : m_objects(document) {}

    std::optional<Value> read(uint64_t index, int depth) {
        if (depth > detail::maximumDepth || ++m_values > mostValues)
            return std::nullopt;
        const auto object = m_objects.at(index);
        if (!object || !object->isInside || !object->hasLength)
            return std::nullopt;
        switch (object->kind) {
        case 0x0:
            if (object->detail == 8 || object->detail == 9)
                return Value{object->detail == 9};
            return std::nullopt;
        case 0x1:
            return integer(*object);
        case 0x2:
        case 0x3:
            return real(*object);
        case 0x4:
            if (const auto bytes = m_objects.bytes(object->begin, object->length))
                return Value{Data{std::string(*bytes)}};
            return std::nullopt;
        case 0x5:
        case 0x6:
            return text(*object);
        case 0xA:
            return array(*object, depth);
        case 0xD:
            return dictionary(*object, depth);
        default:
            return std::nullopt;
        }
    }
    std::optional<Value> read() { return m_objects.isSound() ? read(m_objects.root(), 0) : std::nullopt; }

private:
    using Object = BinaryObjects::Object;

    std::optional<Value> integer(const Object &object) const {
        constexpr unsigned widest = 4; // sixteen bytes, of which the first eight are zero
        const uint64_t width = uint64_t(1) << object.detail;
        if (object.detail > widest || !m_objects.bytes(object.begin, width) ||
            (object.detail == widest && m_objects.number(object.begin, 8) != 0))
            return std::nullopt;
        const uint64_t read = std::min<uint64_t>(width, 8);
        return Value{static_cast<int64_t>(*m_objects.number(object.begin + width - read, read))};
    }

    std::optional<Value> real(const Object &object) const {
        constexpr unsigned single = 2;
        constexpr unsigned twice = 3;
        const bool isDate = object.kind == 0x3;
        const uint64_t width = uint64_t(1) << object.detail;
        if ((object.detail != twice && (object.detail != single || isDate)) ||
            !m_objects.bytes(object.begin, width))
            return std::nullopt;
        const uint64_t bits = *m_objects.number(object.begin, width);
        const double number = object.detail == twice
                                  ? std::bit_cast<double>(bits)
                                  : static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(bits)));
        if (!isDate)
            return Value{number};
        // The framework keeps dates within 68 years of 2001.
        constexpr double furthest = 2147483646;
        if (!(std::fabs(number) < furthest))
            return std::nullopt;
        return Value{Date{number}};
    }

    std::optional<Value> text(const Object &object) const {
        const bool wide = object.kind == 0x6;
        constexpr uint64_t longest = maximumDocument;
        if (object.length > longest)
            return std::nullopt;
        const auto bytes = m_objects.bytes(object.begin, wide ? object.length * 2 : object.length);
        if (!bytes)
            return std::nullopt;
        std::string result;
        if (!wide) {
            if (std::any_of(bytes->begin(), bytes->end(), [](char c) { return c <= 0; }))
                return std::nullopt;
            return Value{std::string(*bytes)};
        }
        const auto unit = [&](size_t at) {
            return static_cast<uint32_t>(static_cast<unsigned char>((*bytes)[at]) << 8U |
                                         static_cast<unsigned char>((*bytes)[at + 1]));
        };
        for (size_t at = 0; at < bytes->size(); at += 2) {
            uint32_t character = unit(at);
            const bool isHigh = character >= 0xD800 && character < 0xDC00;
            if (character == 0 || (character >= 0xDC00 && character < 0xE000) ||
                (isHigh && at + 2 >= bytes->size()))
                return std::nullopt;
            if (isHigh) {
                at += 2;
                const uint32_t low = unit(at);
                if (low < 0xDC00 || low > 0xDFFF)
                    return std::nullopt;
                character = 0x10000 + ((character - 0xD800) << 10U) + (low - 0xDC00);
            }
            detail::appendUtf8(result, character);
        }
        return Value{result};
    }

    [[nodiscard]] std::optional<uint64_t> reference(const Object &object, uint64_t index) const {
        const unsigned size = m_objects.referenceSize();
        return m_objects.number(object.begin + index * size, size);
    }
    [[nodiscard]] bool hasReferences(const Object &object, uint64_t each) const {
        const uint64_t size = m_objects.referenceSize();
        return size >= 1 && size <= 8 && object.length <= mostValues &&
               m_objects.bytes(object.begin, object.length * each * size).has_value();
    }

    std::optional<Value> array(const Object &object, int depth) {
        if (!hasReferences(object, 1))
            return std::nullopt;
        Array result;
        for (uint64_t i = 0; i < object.length; ++i) {
            const auto index = reference(object, i);
            auto value = index ? read(*index, depth + 1) : std::nullopt;
            if (!value)
                return std::nullopt;
            result.push_back(std::move(*value));
        }
        return Value{std::move(result)};
    }

    std::optional<Value> dictionary(const Object &object, int depth) {
        if (!hasReferences(object, 2))
            return std::nullopt;
        Dictionary result;
        for (uint64_t i = 0; i < object.length; ++i) {
            const auto keyIndex = reference(object, i);
            const auto valueIndex = reference(object, object.length + i);
            const auto key = keyIndex ? read(*keyIndex, depth + 1) : std::nullopt;
            if (!key || !key->text() || !valueIndex)
                return std::nullopt;
            auto value = read(*valueIndex, depth + 1);
            if (!value)
                return std::nullopt;
            result.push_back({*key->text(), std::move(*value)});
        }
        if (!detail::hasDistinctKeys(result))
            return std::nullopt;
        return Value{std::move(result)};
    }

    BinaryObjects m_objects;
    size_t m_values = 0;
};

class Writer {
public:
    void write(const Value &value, const std::string &indent) {
        std::visit([&](const auto &content) { put(content, indent); }, value.content);
    }
    std::string text;

private:
    void line(const std::string &indent, const char *element, const std::string &content) {
        text += indent + '<' + element + '>' + content + "</" + element + ">\n";
    }
    void put(bool value, const std::string &indent) { text += indent + (value ? "<true/>\n" : "<false/>\n"); }
    void put(int64_t value, const std::string &indent) { line(indent, "integer", std::to_string(value)); }
    void put(double value, const std::string &indent) {
        char buffer[64];
        const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
        line(indent, "real", std::string(buffer, end));
    }
    void put(const std::string &value, const std::string &indent) { line(indent, "string", escaped(value)); }
    void put(const Date &value, const std::string &indent) {
        constexpr double reference = 978307200;
        const auto seconds = static_cast<time_t>(std::floor(value.seconds + reference));
        struct tm parts {};
        gmtime_r(&seconds, &parts);
        char buffer[32];
        const size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts);
        line(indent, "date", std::string(buffer, length));
    }
    void put(const Data &value, const std::string &indent) {
        static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string encoded;
        for (size_t i = 0; i < value.bytes.size(); i += 3) {
            const size_t count = std::min<size_t>(3, value.bytes.size() - i);
            uint32_t bits = 0;
            for (size_t k = 0; k < 3; ++k)
                bits = bits << 8U | (k < count ? static_cast<unsigned char>(value.bytes[i + k]) : 0U);
            for (size_t k = 0; k < 4; ++k)
                encoded += k <= count ? digits[bits >> (18 - 6 * k) & 63U] : '=';
        }
        line(indent, "data", encoded);
    }
    void put(const Array &value, const std::string &indent) {
        if (value.empty()) {
            text += indent + "<array/>\n";
            return;
        }
        text += indent + "<array>\n";
        for (const Value &each : value)
            write(each, indent + '\t');
        text += indent + "</array>\n";
    }
    void put(const Dictionary &value, const std::string &indent) {
        if (value.empty()) {
            text += indent + "<dict/>\n";
            return;
        }
        text += indent + "<dict>\n";
        for (const auto &[key, each] : value) {
            line(indent + '\t', "key", escaped(key));
            write(each, indent + '\t');
        }
        text += indent + "</dict>\n";
    }

    static std::string escaped(const std::string &value) {
        std::string result;
        for (size_t i = 0; i < value.size(); ++i) {
            const auto c = static_cast<unsigned char>(value[i]);
            if (c == '&')
                result += "&amp;";
            else if (c == '<')
                result += "&lt;";
            else if (c == '>')
                result += "&gt;";
            else if (c < 0x20 && c != '\t' && c != '\n' && c != '\r')
                detail::appendUtf8(result, 0xFFFD);
            else
                result += value[i];
        }
        return detail::isText(result) ? result : withoutBrokenCharacters(result);
    }
    /// Strings from the kernel and the file system need not be UTF-8.
    static std::string withoutBrokenCharacters(const std::string &value) {
        std::string result;
        for (size_t i = 0; i < value.size();) {
            size_t length = std::min<size_t>(4, value.size() - i);
            while (length > 0 && !(detail::isText(std::string_view(value).substr(i, length)) &&
                                   isOneCharacter(std::string_view(value).substr(i, length))))
                --length;
            if (length == 0)
                detail::appendUtf8(result, 0xFFFD);
            else
                result += value.substr(i, length);
            i += std::max<size_t>(length, 1);
        }
        return result;
    }
    static bool isOneCharacter(std::string_view text) {
        return std::all_of(text.begin() + 1, text.end(),
                           [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; });
    }
};

} // namespace

namespace detail {

std::optional<Value> readBinary(std::string_view document) {
    if (document.substr(0, 8) != "bplist00")
        return std::nullopt;
    return BinaryReader(document).read();
}

bool hasDistinctKeys(const Dictionary &dictionary) {
    std::vector<std::string_view> keys;
    keys.reserve(dictionary.size());
    for (const Member &member : dictionary)
        keys.push_back(member.key);
    std::sort(keys.begin(), keys.end());
    return std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

/// The length of the blocks of eight bytes at the front in which no byte is NUL or above 127. Text in feeds
/// is mostly like that, and a byte at a time takes ten times as long.
static size_t plainBlocksAtTheFront(std::string_view text) {
    constexpr uint64_t lowestBits = 0x0101010101010101;
    constexpr uint64_t highestBits = 0x8080808080808080;
    size_t length = 0;
    for (uint64_t block = 0; length + sizeof block <= text.size(); length += sizeof block) {
        std::memcpy(&block, text.data() + length, sizeof block);
        // Without highest bits, subtracting one sets the highest bit of a byte only if a byte is zero.
        if (((block | (block - lowestBits)) & highestBits) != 0)
            break;
    }
    return length;
}

bool isText(std::string_view text) {
    for (size_t i = plainBlocksAtTheFront(text); i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        if (first == 0 || length == 0 || first > 0xF4 || length > text.size() - i)
            return false;
        uint32_t character = length == 1 ? first : first & (0xFFU >> (length + 1));
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80U)
                return false;
            character = character << 6U | (next & 0x3FU);
        }
        constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        if (character < least[length] || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
            return false;
        i += length;
        if (length > 1)
            i += plainBlocksAtTheFront(text.substr(i));
    }
    return true;
}

void appendUtf8(std::string &text, uint32_t character) {
    const auto tail = [&](unsigned shift) {
        text += static_cast<char>(0x80U | (character >> shift & 0x3FU));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0U | character >> 6U);
        tail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0U | character >> 12U);
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | character >> 18U);
        tail(12);
        tail(6);
        tail(0);
    }
}

} // namespace detail

const Value *Value::member(std::string_view key) const {
    if (const auto *dictionary = std::get_if<Dictionary>(&content)) {
        for (const auto &[name, value] : *dictionary) {
            if (name == key)
                return &value;
        }
    }
    return nullptr;
}

std::optional<Value> readPropertyList(std::string_view document) {
    if (document.size() > maximumDocument)
        return std::nullopt;
    return document.substr(0, 6) == "bplist" ? detail::readBinary(document) : detail::readXml(document);
}

std::string writePropertyList(const Value &value) {
    Writer writer;
    writer.text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                  "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                  "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                  "<plist version=\"1.0\">\n";
    writer.write(value, {});
    writer.text += "</plist>\n";
    return writer.text;
}

} // namespace tx::plain
