// SPDX-License-Identifier: MIT
#pragma once

#include "model/packedentries.h"

#include <memory>

namespace tx {

/// The data of a feed's item. At first it refers to the item's entry in the memory block of the feed. The
/// first change of the item replaces this with fields of its own. It is as small as a PackedEntry because a
/// feed may hold a hundred thousand items, of which the host uses one. A value: copies share the block or the
/// fields.
template <typename Fields>
class ItemContent {
public:
    ItemContent() = default;
    explicit ItemContent(PackedEntry entry)
        : m_data(std::const_pointer_cast<std::string>(std::move(entry.block)))
        , m_position(entry.position)
        , m_hasConditions(entry.hasConditions)
        , m_isFromSecureFeed(entry.isFromSecureFeed) {}

    /// The item's own fields; null as long as it has none.
    [[nodiscard]] Fields *fields() const { return m_isOwn ? static_cast<Fields *>(m_data.get()) : nullptr; }
    [[nodiscard]] bool areFieldsShared() const { return m_data.use_count() > 1; }
    void setFields(std::shared_ptr<Fields> fields) {
        m_data = std::move(fields);
        m_isOwn = true;
    }

    /// The entry, as long as the item has no fields of its own. An empty entry if there is no block.
    [[nodiscard]] FeedEntry entry() const {
        return readEntry(static_cast<const std::string *>(m_data.get()), m_position);
    }
    [[nodiscard]] bool hasEntry() const { return !m_isOwn && m_data; }
    [[nodiscard]] bool hasConditions() const { return m_hasConditions; }
    [[nodiscard]] bool isFromSecureFeed() const { return m_isFromSecureFeed; }

    /// True if the item and this object were allocated together. If false, the item deletes this object.
    [[nodiscard]] bool isBesideItem() const { return m_isBesideItem; }
    void setBesideItem(bool isBesideItem) { m_isBesideItem = isBesideItem; }

private:
    std::shared_ptr<void> m_data; ///< the block, which is never changed, or the item's own fields
    quint32 m_position = 0;
    bool m_isOwn = false;
    bool m_hasConditions = false;
    bool m_isFromSecureFeed = false;
    bool m_isBesideItem = false;
};

} // namespace tx
