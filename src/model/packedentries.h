// SPDX-License-Identifier: MIT
#pragma once

#include "model/feedentry.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tx {

/// Where an item's texts are, in a block that the item shares with its neighbours. A text is read from there
/// when it is asked for, because an object for each text of a long feed would take many times its size. A
/// value.
struct PackedEntry {
    std::shared_ptr<const std::string> block; ///< null: none
    quint32 position = 0;
    bool hasConditions = false;
    bool isFromSecureFeed = false;

    /// The texts; valid as long as the block.
    [[nodiscard]] FeedEntry read() const;
};

/// Entries that outlive their document, packed into few pieces of memory: objects for them cost more than
/// reading the document, and most are never asked for. Thread: a value.
class PackedEntries {
public:
    /// Copies the entry's texts, but not its type.
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

/// The entry at that place of a block; an empty one without a block.
[[nodiscard]] FeedEntry readEntry(const std::string *block, quint32 position);

/// One entry in a block of its own.
[[nodiscard]] PackedEntry packed(const FeedEntry &entry);

} // namespace tx
