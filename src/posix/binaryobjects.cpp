// SPDX-License-Identifier: MIT
#include "posix/binaryobjects.h"

#include <algorithm>

namespace tx {

namespace {

constexpr size_t header = 8;
constexpr size_t trailer = 32;

} // namespace

BinaryObjects::BinaryObjects(std::string_view document)
    : m_document(document) {
    if (document.size() < trailer || document.substr(0, 6) != "bplist")
        return;
    const size_t start = document.size() - trailer;
    m_offsetSize = static_cast<unsigned char>(document[start + 6]);
    m_referenceSize = static_cast<unsigned char>(document[start + 7]);
    m_count = number(start + 8, 8).value_or(0);
    m_root = number(start + 16, 8).value_or(0);
    m_table = number(start + 24, 8).value_or(0);
}

uint64_t BinaryObjects::count() const {
    return m_offsetSize == 0 || m_table >= size() ? 0 : std::min(m_count, (size() - m_table) / m_offsetSize);
}

bool BinaryObjects::isSound() const {
    return m_offsetSize >= 1 && m_offsetSize <= 8 && size() >= header + trailer && m_table >= header &&
           m_table <= size() - trailer && m_count <= (size() - trailer - m_table) / m_offsetSize &&
           m_root < m_count;
}

std::optional<BinaryObjects::Object> BinaryObjects::at(uint64_t index) const {
    if (index >= count())
        return std::nullopt;
    const auto offset = number(m_table + index * m_offsetSize, m_offsetSize);
    if (!offset || *offset >= size())
        return std::nullopt;
    const auto marker = static_cast<unsigned char>(m_document[static_cast<size_t>(*offset)]);
    Object object{.kind = static_cast<unsigned>(marker) >> 4U,
                  .detail = marker & 0xFU,
                  .length = marker & 0xFU,
                  .begin = *offset + 1,
                  .isInside = *offset >= header && *offset < m_table,
                  .hasLength = true};
    constexpr unsigned firstWithLength = 0x4;
    constexpr unsigned lengthFollows = 0xF;
    if (object.kind >= firstWithLength && object.detail == lengthFollows) {
        // An integer object: its marker says of how many bytes, 2 to the power of its low digit.
        const auto width = number(object.begin, 1);
        const uint64_t bytes = width ? uint64_t(1) << (*width & 0x3) : 0;
        const auto length = number(object.begin + 1, bytes);
        constexpr unsigned integer = 0x1;
        object.hasLength = length && *width >> 4 == integer && (*width & 0xF) < 4;
        object.length = length.value_or(0);
        object.begin += 1 + bytes;
    }
    return object;
}

std::optional<uint64_t> BinaryObjects::number(uint64_t offset, uint64_t bytes) const {
    if (bytes < 1 || bytes > 8 || bytes > size() || offset > size() - bytes)
        return std::nullopt;
    uint64_t value = 0;
    for (uint64_t i = 0; i < bytes; ++i)
        value = value << 8 | static_cast<unsigned char>(m_document[static_cast<size_t>(offset + i)]);
    return value;
}

std::optional<std::string_view> BinaryObjects::bytes(uint64_t offset, uint64_t length) const {
    const uint64_t end = std::min(m_table, size());
    if (offset > end || length > end - offset)
        return std::nullopt;
    return m_document.substr(static_cast<size_t>(offset), static_cast<size_t>(length));
}

} // namespace tx
