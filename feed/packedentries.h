// SPDX-License-Identifier: MIT
#pragma once

#include "feed/feedentry.h"

#include <functional>

namespace tx {

/// Entries that outlive their document, all in one piece of memory: objects for them cost more than reading
/// the document, and most are never asked for. Thread: a value.
class PackedEntries {
public:
    /// Copies the entry's texts.
    void append(const FeedEntry &entry);
    [[nodiscard]] bool isEmpty() const { return m_bytes.empty(); }
    /// Calls `visit` with each entry in order. An entry lives as long as its call.
    void forEach(const std::function<void(const FeedEntry &)> &visit) const;

private:
    std::string m_bytes;
};

} // namespace tx
