// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdatePost.h>

#include <QList>

namespace tx {

/// Why an item does not apply to a build and a system.
enum class Objection { None, MinimumBuild, MaximumBuild, MinimumSystem, MaximumSystem, NotNewer };

/// The first bound that does not hold. Thread: any.
[[nodiscard]] Objection objectionTo(const TXUpdateItemConditions &conditions, const QString &build,
                                    const QString &systemVersion);

/// Describes the objection; null if there is none. `version` is the item's own build.
[[nodiscard]] QString describe(Objection objection, const TXUpdateItemConditions &conditions,
                               const QString &version, const QString &build, const QString &systemVersion);

/// Whether the item's bounds hold and, for an update, its version is newer than `build`. Thread: any.
[[nodiscard]] bool isItemRelevant(const TXUpdateItem &item, const QString &build,
                                  const QString &systemVersion);

/// The relevant ones, in the order given.
template <typename Item>
[[nodiscard]] QList<std::shared_ptr<Item>> relevantItems(const QList<std::shared_ptr<Item>> &items,
                                                         const QString &build, const QString &systemVersion) {
    QList<std::shared_ptr<Item>> result;
    for (const std::shared_ptr<Item> &item : items) {
        if (isItemRelevant(*item, build, systemVersion))
            result.append(item);
    }
    return result;
}

/// The versions that the user ignores, read once for questions about many updates. Thread: main.
class IgnoredVersions {
public:
    IgnoredVersions();
    /// Whether this version or a newer one is ignored. An ignore older than 30 days is removed.
    [[nodiscard]] bool contains(const TXUpdate &update);

private:
    QString m_version; ///< null when nothing is ignored
    QDateTime m_expiry;
};

/// Returns whether the user ignores this update.
[[nodiscard]] bool isUpdateIgnored(const TXUpdate &update);

} // namespace tx
