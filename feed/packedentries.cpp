// SPDX-License-Identifier: MIT
#include "feed/packedentries.h"

#include <cstring>

namespace tx {

namespace {

// An entry is, for each member that it has, a byte for the member, the length and the text, and at last this.
constexpr char endOfEntry = static_cast<char>(FeedEntry::memberCount);

} // namespace

void PackedEntries::append(const FeedEntry &entry) {
    constexpr size_t blockSize = 1 << 20;
    using Length = uint32_t; // a document is far smaller
    size_t size = 1;
    for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
        const auto member = static_cast<FeedEntry::Member>(i);
        if (entry.has(member))
            size += 1 + sizeof(Length) + entry.bytes(member).size();
    }
    if (m_blocks.empty() || m_blocks.back().size() + size > blockSize) {
        if (!m_blocks.empty())
            m_blocks.back().shrink_to_fit();
        m_blocks.emplace_back();
        if (size > blockSize)
            m_blocks.back().reserve(size);
    }
    std::string &block = m_blocks.back();
    for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
        const auto member = static_cast<FeedEntry::Member>(i);
        if (!entry.has(member))
            continue;
        const std::string_view text = entry.bytes(member);
        const auto length = static_cast<Length>(text.size());
        char header[1 + sizeof length] = {static_cast<char>(i)};
        std::memcpy(header + 1, &length, sizeof length);
        block.append(header, sizeof header).append(text);
    }
    block += endOfEntry;
}

void PackedEntries::forEach(const std::function<void(const FeedEntry &)> &visit) const {
    for (const std::string &block : m_blocks) {
        const char *next = block.data();
        const char *const end = next + block.size();
        while (next != end) {
            FeedEntry entry;
            while (*next != endOfEntry) {
                const auto member = static_cast<FeedEntry::Member>(*next++);
                uint32_t length = 0;
                std::memcpy(&length, next, sizeof length);
                next += sizeof length;
                entry.set(member, {next, length});
                next += length;
            }
            ++next;
            visit(entry);
        }
    }
}

} // namespace tx
