// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tx {

/// The objects of a binary property list as its trailer describes them: a table of offsets, one for each
/// object. Nothing in the document is believed: what lies beyond its end is absent. No Qt. Thread: any.
class BinaryObjects {
public:
    explicit BinaryObjects(std::string_view document);

    /// At most as many as the table has room for; 0 if the data is not a binary property list.
    [[nodiscard]] uint64_t count() const;
    /// True when the table ends where the trailer begins or before, has room for all objects and the root is
    /// one of them.
    [[nodiscard]] bool isSound() const;
    /// The number of the root object.
    [[nodiscard]] uint64_t root() const { return m_root; }
    /// The bytes that each reference to another object takes.
    [[nodiscard]] unsigned referenceSize() const { return m_referenceSize; }

    /// An object's first byte, the number that it gives, and where what follows begins.
    struct Object {
        unsigned kind;   ///< the high half of the marker
        unsigned detail; ///< the low half of the marker
        uint64_t length; ///< the low half, or the integer that follows where it says so
        uint64_t begin;
        bool isInside;  ///< false for one among the offsets or in the header
        bool hasLength; ///< false when the length should follow and does not, as a whole number
    };
    [[nodiscard]] std::optional<Object> at(uint64_t index) const;

    /// Big-endian; absent beyond the end of the document or 64 bits.
    [[nodiscard]] std::optional<uint64_t> number(uint64_t offset, uint64_t bytes) const;
    /// Absent where they do not end before the table of offsets.
    [[nodiscard]] std::optional<std::string_view> bytes(uint64_t offset, uint64_t length) const;
    [[nodiscard]] uint64_t size() const { return m_document.size(); }
    [[nodiscard]] std::string_view document() const { return m_document; }

private:
    std::string_view m_document;
    unsigned m_offsetSize = 0;
    unsigned m_referenceSize = 0;
    uint64_t m_count = 0;
    uint64_t m_root = 0;
    uint64_t m_table = 0;
};

} // namespace tx
