// SPDX-License-Identifier: MIT
#include "model/packedentries.h"

#include <cstring>

namespace tx {

namespace {

// An entry consists of one byte for the member, the length and the string, for each member, and of this at
// the end.
constexpr char endOfEntry = static_cast<char>(FeedEntry::memberCount);
using Length = uint32_t; // documents are far smaller

/// Walks to the end of the entry and reports each member.
template <typename Visit>
const char *walk(const char *next, Visit visit) {
    while (*next != endOfEntry) {
        const auto member = static_cast<FeedEntry::Member>(*next++);
        Length length = 0;
        std::memcpy(&length, next, sizeof length);
        next += sizeof length;
        visit(member, std::string_view(next, length));
        next += length;
    }
    return next + 1;
}

/// The kind of an entry is already known when the entry is kept.
bool isKept(const FeedEntry &entry, FeedEntry::Member member) {
    return member != FeedEntry::Member::Type && entry.has(member);
}

} // namespace

size_t PackedEntries::sizeOf(const FeedEntry &entry) {
    size_t size = sizeof endOfEntry;
    for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
        const auto member = static_cast<FeedEntry::Member>(i);
        if (isKept(entry, member))
            size += 1 + sizeof(Length) + entry.bytes(member).size();
    }
    return size;
}

void PackedEntries::append(const FeedEntry &entry) {
    constexpr size_t blockSize = 64 << 10;
    const size_t size = sizeOf(entry);
    if (m_blocks.empty() || m_blocks.back()->size() + size > blockSize) {
        if (!m_blocks.empty())
            m_blocks.back()->shrink_to_fit();
        m_blocks.push_back(std::make_shared<std::string>());
        if (size > blockSize)
            m_blocks.back()->reserve(size);
    }
    std::string &block = *m_blocks.back();
    for (size_t i = 0; i < FeedEntry::memberCount; ++i) {
        const auto member = static_cast<FeedEntry::Member>(i);
        if (!isKept(entry, member))
            continue;
        const std::string_view text = entry.bytes(member);
        const auto length = static_cast<Length>(text.size());
        char header[1 + sizeof length] = {static_cast<char>(i)};
        std::memcpy(header + 1, &length, sizeof length);
        block.append(header, sizeof header).append(text);
    }
    block += endOfEntry;
    ++m_count;
}

void PackedEntries::forEach(const std::function<void(PackedEntry)> &visit) const {
    for (const auto &block : m_blocks) {
        const char *const begin = block->data();
        const char *const end = begin + block->size();
        for (const char *next = begin; next != end;) {
            visit({block, static_cast<quint32>(next - begin)});
            next = walk(next, [](FeedEntry::Member, std::string_view) {});
        }
    }
}

FeedEntry PackedEntry::read() const { return readEntry(block.get(), position); }

FeedEntry readEntry(const std::string *block, quint32 position) {
    FeedEntry entry;
    if (block)
        walk(block->data() + position,
             [&entry](FeedEntry::Member member, std::string_view text) { entry.set(member, text); });
    return entry;
}

PackedEntry packed(const FeedEntry &entry) {
    PackedEntries one;
    one.append(entry);
    PackedEntry result;
    one.forEach([&result](PackedEntry only) { result = std::move(only); });
    return result;
}

} // namespace tx
