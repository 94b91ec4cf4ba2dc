// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateTrack.h>

#include <functional>
#include <mutex>
#include <utility>

/// What a reader found, until objects are requested. Creating them on the reader's thread and moving each to
/// the main thread would take as long as reading the document, and more memory than it.
struct TXUpdateTrackPrivate {
    template <typename Item>
    struct List {
        std::once_flag once;
        std::function<QList<Item>()> make;
        QList<Item> made;

        QList<Item> get() {
            std::call_once(once, [this] {
                if (const auto maker = std::exchange(make, nullptr))
                    made = maker();
            });
            return made;
        }
    };
    QString name;
    List<TXUpdatePtr> updates;
    List<TXUpdatePostPtr> posts;

    /// For parsers. Each function is called once, when its items are first requested, on the thread that
    /// requests them.
    static TXUpdateTrackPtr trackWithItems(const QString &name,
                                           std::function<QList<TXUpdatePtr>()> makeUpdates,
                                           std::function<QList<TXUpdatePostPtr>()> makePosts);
};
