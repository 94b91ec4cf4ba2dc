// SPDX-License-Identifier: MIT
#pragma once

#include "model/feedentry.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tx {

/// The position of an item's strings in a memory block that many items share. A string is read from the block
/// when it is requested. One object for each string of a long feed would take many times the memory. A value.
struct PackedEntry {
    std::shared_ptr<const std::string> block; ///< null: none
    quint32 position = 0;
    bool hasConditions = false;
    bool isFromSecureFeed = false;

    /// Reads the strings. They are valid as long as the block exists.
    [[nodiscard]] FeedEntry read() const;
};

/// Entries that outlive their document, packed into few pieces of memory: objects for them cost more than
/// reading the document, and most are never asked for. Thread: a value.
class PackedEntries {
public:
    /// Copies the entry's strings, but not its type.
    void append(const FeedEntry &entry);
    [[nodiscard]] bool isEmpty() const { return m_count == 0; }
    [[nodiscard]] qsizetype size() const { return m_count; }
    /// Calls `visit` with each entry in order.
    void forEach(const std::function<void(PackedEntry entry)> &visit) const;

    /// How many bytes an entry takes here.
    [[nodiscard]] static size_t sizeOf(const FeedEntry &entry);

private:
    /// Each entry lies in one block. Blocks are used because a single growing buffer exists twice while it is
    /// reallocated, and because an item keeps only its own block alive.
    std::vector<std::shared_ptr<std::string>> m_blocks;
    qsizetype m_count = 0;
};

/// Reads the entry at `position` of `block`. Returns an empty entry if `block` is null.
[[nodiscard]] FeedEntry readEntry(const std::string *block, quint32 position);

/// Makes a block that contains one entry.
[[nodiscard]] PackedEntry packed(const FeedEntry &entry);

} // namespace tx
