// SPDX-License-Identifier: MIT
#pragma once

#include "feed/feedentry.h"

#include <functional>
#include <string>
#include <vector>

namespace tx {

/// Entries that outlive their document, packed into few pieces of memory: objects for them cost more than
/// reading the document, and most are never asked for. Thread: a value.
class PackedEntries {
public:
    /// Copies the entry's texts.
    void append(const FeedEntry &entry);
    [[nodiscard]] bool isEmpty() const { return m_blocks.empty(); }
    /// Calls `visit` with each entry in order. An entry lives as long as its call.
    void forEach(const std::function<void(const FeedEntry &)> &visit) const;

private:
    /// An entry is never divided. Blocks, as one piece of memory that grows is there twice while it does.
    std::vector<std::string> m_blocks;
};

} // namespace tx
