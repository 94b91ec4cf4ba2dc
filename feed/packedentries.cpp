// SPDX-License-Identifier: MIT
#include "feed/packedentries.h"

#include <cstring>

namespace tx {

namespace {

// An entry is, for each member that it has, a byte for the member, the length and the text, and at last this.
constexpr char endOfEntry = static_cast<char>(FeedEntry::memberCount);

} // namespace

void PackedEntries::append(const FeedEntry &entry) {
    for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
        const auto member = static_cast<FeedEntry::Member>(i);
        if (!entry.has(member))
            continue;
        const std::string_view text = entry.bytes(member);
        const auto length = static_cast<uint32_t>(text.size()); // a document has 64 MiB at most
        char header[1 + sizeof length] = {static_cast<char>(i)};
        std::memcpy(header + 1, &length, sizeof length);
        m_bytes.append(header, sizeof header).append(text);
    }
    m_bytes += endOfEntry;
}

void PackedEntries::forEach(const std::function<void(const FeedEntry &)> &visit) const {
    const char *next = m_bytes.data();
    const char *const end = next + m_bytes.size();
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

} // namespace tx
