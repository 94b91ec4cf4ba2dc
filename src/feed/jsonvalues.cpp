// SPDX-License-Identifier: MIT
#include "feed/jsonvalues.h"

#include <QStringDecoder>

#include <utility>

namespace tx {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Removes digits from the front; false if there are none.
bool takeDigits(std::string_view &text) {
    const size_t before = text.size();
    while (!text.empty() && isDigit(text.front()))
        text.remove_prefix(1);
    return text.size() != before;
}

bool take(std::string_view &text, std::string_view characters) {
    if (text.empty() || characters.find(text.front()) == std::string_view::npos)
        return false;
    text.remove_prefix(1);
    return true;
}

/// Whether a string is a number by the grammar of JSON, of any size.
bool isNumber(std::string_view text) {
    (void)take(text, "-");
    if (!take(text, "0") && !takeDigits(text))
        return false;
    if (take(text, ".") && !takeDigits(text))
        return false;
    if (take(text, "eE")) {
        (void)take(text, "+-");
        if (!takeDigits(text))
            return false;
    }
    return text.empty();
}

void appendQuoted(std::string &json, std::string_view text) {
    constexpr char hexadecimal[] = "0123456789abcdef";
    json += '"';
    for (const char c : text) {
        const auto value = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            (json += '\\') += c;
        else if (value < 0x20)
            ((json += "\\u00") += hexadecimal[value >> 4]) += hexadecimal[value & 0x0F];
        else
            json += c;
    }
    json += '"';
}

} // namespace

error_code readNumber(ondemand::value value, std::string_view &text) {
    text = value.raw_json_token(); // including the blanks after it
    text = text.substr(0, text.find_last_not_of(" \t\n\r") + 1);
    return isNumber(text) ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
}

error_code readNull(ondemand::value value) {
    bool isNull = false;
    const error_code error = value.is_null().get(isNull);
    return !error && !isNull ? simdjson::N_ATOM_ERROR : error;
}

error_code walk(ondemand::value value, int depth, std::string *json) {
    if (depth > deepestNesting)
        return simdjson::DEPTH_ERROR;
    if (json && json->size() > longestTextForm)
        return simdjson::CAPACITY;
    ondemand::json_type type{};
    if (const error_code error = value.type().get(type))
        return error;
    switch (type) {
    case ondemand::json_type::array: {
        ondemand::array array;
        if (const error_code error = value.get_array().get(array))
            return error;
        char before = '[';
        for (auto element : array) {
            ondemand::value child;
            if (const error_code error = element.get(child))
                return error;
            if (json)
                *json += std::exchange(before, ',');
            if (const error_code error = walk(child, depth + 1, json))
                return error;
        }
        if (json)
            *json += before == '[' ? "[]" : "]";
        return simdjson::SUCCESS;
    }
    case ondemand::json_type::object: {
        ondemand::object object;
        if (const error_code error = value.get_object().get(object))
            return error;
        char before = '{';
        for (auto field : object) {
            std::string_view key;
            if (const error_code error = readName(field, key))
                return error;
            if (json) {
                *json += std::exchange(before, ',');
                appendQuoted(*json, key);
                *json += ':';
            }
            ondemand::value child;
            if (const error_code error = field.value().get(child))
                return error;
            if (const error_code error = walk(child, depth + 1, json))
                return error;
        }
        if (json)
            *json += before == '{' ? "{}" : "}";
        return simdjson::SUCCESS;
    }
    case ondemand::json_type::string: {
        std::string_view text;
        const error_code error = readText(value, text);
        if (!error && json)
            appendQuoted(*json, text);
        return error;
    }
    case ondemand::json_type::number: {
        std::string_view number;
        const error_code error = readNumber(value, number);
        if (!error && json)
            *json += number;
        return error;
    }
    case ondemand::json_type::boolean: {
        bool boolean = false;
        const error_code error = value.get_bool().get(boolean);
        if (!error && json)
            *json += boolean ? "true" : "false";
        return error;
    }
    case ondemand::json_type::null: {
        if (json)
            *json += "null";
        return readNull(value);
    }
    }
    return simdjson::TAPE_ERROR;
}

QByteArray asUtf8(const QByteArray &data) {
    const auto encoding = QStringConverter::encodingForData(data);
    if (!encoding)
        return data;
    if (*encoding == QStringConverter::Utf8)
        return data.mid(3);
    QStringDecoder decoder(*encoding);
    const QString text = decoder.decode(data);
    // The decoder accepts unpaired surrogates, which would become question marks.
    return decoder.hasError() || !text.isValidUtf16() ? QByteArray() : text.toUtf8();
}

} // namespace tx
