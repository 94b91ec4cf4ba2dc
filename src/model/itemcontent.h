// SPDX-License-Identifier: MIT
#pragma once

#include "model/packedentries.h"

#include <memory>

namespace tx {

/// What is behind an item of a feed: its entry in the feed's block, until something is stored in the item,
/// and fields of its own from then on. It is as large as the entry alone, because a feed may hold a hundred
/// thousand items of which one is used. A value: copies share the block or the fields.
template <typename Fields>
class ItemContent {
public:
    ItemContent() = default;
    explicit ItemContent(PackedEntry entry)
        : m_data(std::const_pointer_cast<std::string>(std::move(entry.block)))
        , m_position(entry.position)
        , m_hasConditions(entry.hasConditions)
        , m_isFromSecureFeed(entry.isFromSecureFeed) {}

    /// The item's own fields; null while it has none.
    [[nodiscard]] Fields *fields() const { return m_isOwn ? static_cast<Fields *>(m_data.get()) : nullptr; }
    [[nodiscard]] bool areFieldsShared() const { return m_data.use_count() > 1; }
    void setFields(std::shared_ptr<Fields> fields) {
        m_data = std::move(fields);
        m_isOwn = true;
    }

    /// While there are no fields: the entry, an empty one if there is none either.
    [[nodiscard]] FeedEntry entry() const {
        return readEntry(static_cast<const std::string *>(m_data.get()), m_position);
    }
    [[nodiscard]] bool hasEntry() const { return !m_isOwn && m_data; }
    [[nodiscard]] bool hasConditions() const { return m_hasConditions; }
    [[nodiscard]] bool isFromSecureFeed() const { return m_isFromSecureFeed; }

    /// Whether one piece of memory holds this and the item. Otherwise the item owns it.
    [[nodiscard]] bool isBesideItem() const { return m_isBesideItem; }
    void setBesideItem(bool isBesideItem) { m_isBesideItem = isBesideItem; }

private:
    std::shared_ptr<void> m_data; ///< the block, which is never written, or the fields
    quint32 m_position = 0;
    bool m_isOwn = false;
    bool m_hasConditions = false;
    bool m_isFromSecureFeed = false;
    bool m_isBesideItem = false;
};

} // namespace tx
