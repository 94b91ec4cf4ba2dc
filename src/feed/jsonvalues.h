// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringConverter>

#include <simdjson.h>

#include <cstring>
#include <string>
#include <string_view>

/// Values of a JSON document as both the reader of feeds and the publisher's checks take them. Thread: any.
namespace tx {

namespace ondemand = simdjson::ondemand;
using simdjson::error_code;

constexpr int deepestNesting = 256;
/// Of a member that is a list or an object.
constexpr size_t longestTextForm = 1 << 20;
constexpr int depthOfMember = 4; // within the document, its track and its entry

inline QString fromUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

/// Converts the document to UTF-8 without a byte order mark. UTF-16 and UTF-32 documents must begin with a
/// byte order mark.
[[nodiscard]] QByteArray asUtf8(const QByteArray &data);

/// A number as it is written. The parser would refuse integers of more than 64 bits and numbers that no
/// double can hold, which are JSON all the same.
[[nodiscard]] error_code readNumber(ondemand::value value, std::string_view &text);

/// The text of a string. Nearly all of them hold no escapes and are taken from the document as they are.
inline error_code readText(ondemand::value value, std::string_view &text) {
    const std::string_view token = value.raw_json_token(); // with the quotes, and blanks behind them
    if (std::memchr(token.data(), '\\', token.size()))
        return value.get_string().get(text);
    const size_t end = token.rfind('"');
    if (end == std::string_view::npos || end == 0)
        return simdjson::STRING_ERROR;
    text = token.substr(1, end - 1);
    ondemand::raw_json_string unused;
    return value.get_raw_json_string().get(unused);
}

/// The name of a member, likewise.
template <typename Field>
error_code readName(Field &field, std::string_view &name) {
    ondemand::raw_json_string raw;
    if (const error_code error = field.key().get(raw))
        return error;
    const char *end = raw.raw();
    while (*end != '"' && *end != '\\') // there is a quote: the parser has looked for it
        ++end;
    if (*end == '\\')
        return field.unescaped_key().get(name);
    name = {raw.raw(), static_cast<size_t>(end - raw.raw())};
    return simdjson::SUCCESS;
}

[[nodiscard]] error_code readNull(ondemand::value value);

/// Reads a value to its end, so that whatever is wrong in it is found, and writes it as JSON without blanks
/// when that is wanted. `depth`: of the value.
[[nodiscard]] error_code walk(ondemand::value value, int depth, std::string *json);

/// The document's bytes in UTF-8, followed by the padding that the parser needs. Usually the buffer has room
/// for the padding; otherwise the whole document is copied.
class PaddedDocument {
public:
    explicit PaddedDocument(QByteArray data)
        : m_bytes(std::move(data)) {
        const auto encoding = QStringConverter::encodingForData(m_bytes);
        if (encoding == QStringConverter::Utf8)
            m_begin = 3;
        else if (encoding)
            m_bytes = asUtf8(m_bytes);
        const qsizetype needed = m_bytes.size() + static_cast<qsizetype>(simdjson::SIMDJSON_PADDING);
        // The capacity also counts bytes that were removed from the front of a document.
        if (m_bytes.data_ptr().freeSpaceAtEnd() >= needed - m_bytes.size())
            return;
        QByteArray copy;
        copy.reserve(needed);
        copy.append(m_bytes);
        m_bytes = copy;
    }
    [[nodiscard]] simdjson::padded_string_view view() const {
        return simdjson::padded_string_view(m_bytes.constData() + m_begin, size(),
                                            size() + simdjson::SIMDJSON_PADDING);
    }
    [[nodiscard]] size_t size() const { return static_cast<size_t>(m_bytes.size() - m_begin); }

private:
    QByteArray m_bytes;
    qsizetype m_begin = 0; ///< behind a byte order mark
};

} // namespace tx
