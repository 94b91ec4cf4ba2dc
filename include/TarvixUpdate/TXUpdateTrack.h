// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdatePost.h>

#include <QList>

#include <functional>

/// Reads and writes the dates of the record of handled posts, "yyyy-MM-dd'T'HH:mm:ssZ".
/// Thread: a value; any.
class TX_EXPORT TXUpdateDateFormatter {
public:
    /// "2026-01-31T12:00:00+0100" as a date with that offset; invalid for every other form, such as the one
    /// of the dates in feeds.
    [[nodiscard]] QDateTime dateFromString(const QString &text) const;
    /// The same form, in the user's time zone. Null for an invalid date.
    [[nodiscard]] QString stringFromDate(const QDateTime &date) const;
};

/// One release track of a feed: its updates and posts, in feed order.
/// Thread: main; reads and writes the record of handled posts in the user defaults.
class TX_EXPORT TXUpdateTrack {
public:
    TXUpdateTrack(const QString &name, const QList<TXUpdatePtr> &updates,
                  const QList<TXUpdatePostPtr> &posts);
    /// For the framework's readers: each function is called once, when what it makes is first asked for, on
    /// the thread that asks.
    static std::shared_ptr<TXUpdateTrack> trackWithItems(const QString &name,
                                                         std::function<QList<TXUpdatePtr>()> makeUpdates,
                                                         std::function<QList<TXUpdatePostPtr>()> makePosts);

    [[nodiscard]] QString name() const { return m_name; }
    [[nodiscard]] QList<TXUpdatePtr> updates() const;
    [[nodiscard]] QList<TXUpdatePostPtr> posts() const;

    /// The newest update that the user does not ignore, the first of equal ones; null when there is none.
    [[nodiscard]] TXUpdatePtr recommendedUpdate() const;
    /// The same among the updates dated before `limit`, when that is valid.
    [[nodiscard]] TXUpdatePtr recommendedUpdateBefore(const QDateTime &limit) const;

    /// Posts dated at or after `date`; a post without a date always counts.
    [[nodiscard]] QList<TXUpdatePostPtr> postsSinceDate(const QDateTime &date) const;
    /// Posts of the last 90 days.
    [[nodiscard]] QList<TXUpdatePostPtr> recentPosts() const;
    /// The latest date among the handled posts; invalid when none can be read.
    [[nodiscard]] QDateTime dateOfMostRecentlyHandledPost() const;
    /// Posts since that date, or recent ones when there is none.
    [[nodiscard]] QList<TXUpdatePostPtr> recentUnhandledPosts() const;
    /// Recent posts of that display time that are not recorded as handled.
    [[nodiscard]] QList<TXUpdatePostPtr> unhandledPostsWithDisplayTime(TXUpdatePostDisplayTime time) const;
    [[nodiscard]] QList<TXUpdatePostPtr> postsToDisplayDefault() const;

    /// A new formatter for the dates of the posts-check-info record. Thread: any.
    [[nodiscard]] static TXUpdateDateFormatter postsCheckDateFormatter();
    /// This track's part of the posts-check-info record; empty when absent. Titles and dates that hold
    /// characters which no property list can hold are escaped in it (docs/architecture.md).
    [[nodiscard]] QVariantMap postsCheckInfo() const;
    /// Records the posts as handled.
    void updatePostsCheckInfoToHandlePosts(const QList<TXUpdatePostPtr> &posts) const;

private:
    QString m_name;
    struct Items;
    std::shared_ptr<Items> m_items;
};

using TXUpdateTrackPtr = std::shared_ptr<TXUpdateTrack>;
