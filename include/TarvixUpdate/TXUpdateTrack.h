// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdate.h>
#include <TarvixUpdate/TXUpdatePost.h>

#include <QList>

#include <memory>

struct TXUpdateTrackPrivate;

/// Reads and writes the dates of the record of handled posts, "yyyy-MM-dd'T'HH:mm:ssZ".
/// Thread: a value; any.
class TX_EXPORT TXUpdateDateFormatter {
public:
    /// Parses "2026-01-31T12:00:00+0100" to a date with that offset; invalid for every other form, also for
    /// that of dates in feeds.
    [[nodiscard]] QDateTime dateFromString(const QString &text) const;
    /// Formats a date in the same form, in the user's time zone. Null for an invalid date.
    [[nodiscard]] QString stringFromDate(const QDateTime &date) const;
};

/// One release track of a feed: its updates and posts, in feed order.
/// Thread: main; reads and writes the record of handled posts in the user defaults.
class TX_EXPORT TXUpdateTrack {
public:
    /// A track with these items, in feed order.
    TXUpdateTrack(const QString &name, const QList<TXUpdatePtr> &updates,
                  const QList<TXUpdatePostPtr> &posts);
    /// The name of the track, such as "release".
    [[nodiscard]] QString name() const;
    /// The updates in feed order.
    [[nodiscard]] QList<TXUpdatePtr> updates() const;
    /// The posts in feed order.
    [[nodiscard]] QList<TXUpdatePostPtr> posts() const;

    /// The newest update that the user does not ignore. Of several equal ones the first; null if there is
    /// none.
    [[nodiscard]] TXUpdatePtr recommendedUpdate() const;
    /// Like recommendedUpdate(), but only among updates dated before `limit`. An invalid `limit` sets no
    /// bound.
    [[nodiscard]] TXUpdatePtr recommendedUpdateBefore(const QDateTime &limit) const;

    /// Posts dated at or after `date`; a post without a date always counts.
    [[nodiscard]] QList<TXUpdatePostPtr> postsSinceDate(const QDateTime &date) const;
    /// Posts of the last 90 days.
    [[nodiscard]] QList<TXUpdatePostPtr> recentPosts() const;
    /// The latest date among the handled posts; invalid if none can be read.
    [[nodiscard]] QDateTime dateOfMostRecentlyHandledPost() const;
    /// Returns postsSinceDate(dateOfMostRecentlyHandledPost()), or recentPosts() if that date is invalid.
    [[nodiscard]] QList<TXUpdatePostPtr> recentUnhandledPosts() const;
    /// Recent posts of that display time that are not recorded as handled.
    [[nodiscard]] QList<TXUpdatePostPtr> unhandledPostsWithDisplayTime(TXUpdatePostDisplayTime time) const;
    /// unhandledPostsWithDisplayTime() for the default display time.
    [[nodiscard]] QList<TXUpdatePostPtr> postsToDisplayDefault() const;

    /// A new formatter for the dates of the posts-check-info record. Thread: any.
    [[nodiscard]] static TXUpdateDateFormatter postsCheckDateFormatter();
    /// This track's part of the posts-check-info record; empty if absent. Titles and dates with characters
    /// that a property list cannot contain are escaped in it (docs/architecture.md).
    [[nodiscard]] QVariantMap postsCheckInfo() const;
    /// Records the posts as handled.
    void updatePostsCheckInfoToHandlePosts(const QList<TXUpdatePostPtr> &posts) const;

private:
    friend struct TXUpdateTrackPrivate;
    std::shared_ptr<TXUpdateTrackPrivate> d; ///< shared by all copies
};

/// A feed and its host share a track.
using TXUpdateTrackPtr = std::shared_ptr<TXUpdateTrack>;
