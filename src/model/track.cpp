// SPDX-License-Identifier: MIT
#include "model/track_p.h"

#include "model/handleddate.h"
#include "model/handledrecord.h"
#include "model/relevance.h"
#include "model/versioncomparison.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXUpdateSettings.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 recentSeconds = 7776000;  // 90 days
constexpr qint64 handledSeconds = 2592000; // 30 days

const QString handledPostsKey = u"handledPosts"_s;

} // namespace

QDateTime TXUpdateDateFormatter::dateFromString(const QString &text) const {
    return tx::handledPostDate(text);
}

QString TXUpdateDateFormatter::stringFromDate(const QDateTime &date) const {
    return tx::handledPostDateText(date);
}

TXUpdateTrack::TXUpdateTrack(const QString &name, const QList<TXUpdatePtr> &updates,
                             const QList<TXUpdatePostPtr> &posts)
    : d(std::make_shared<TXUpdateTrackPrivate>()) {
    d->name = name;
    d->updates.made = updates;
    d->posts.made = posts;
}

TXUpdateTrackPtr TXUpdateTrackPrivate::trackWithItems(const QString &name,
                                                      std::function<QList<TXUpdatePtr>()> makeUpdates,
                                                      std::function<QList<TXUpdatePostPtr>()> makePosts) {
    auto track = std::make_shared<TXUpdateTrack>(name, QList<TXUpdatePtr>(), QList<TXUpdatePostPtr>());
    track->d->updates.make = std::move(makeUpdates);
    track->d->posts.make = std::move(makePosts);
    return track;
}

QString TXUpdateTrack::name() const { return d->name; }
QList<TXUpdatePtr> TXUpdateTrack::updates() const { return d->updates.get(); }
QList<TXUpdatePostPtr> TXUpdateTrack::posts() const { return d->posts.get(); }

TXUpdatePtr TXUpdateTrack::recommendedUpdate() const { return recommendedUpdateBefore({}); }

TXUpdatePtr TXUpdateTrack::recommendedUpdateBefore(const QDateTime &limit) const {
    TXUpdatePtr best;
    tx::IgnoredVersions ignored;
    for (const TXUpdatePtr &update : updates()) {
        if (limit.isValid()) {
            const QDateTime date = update->date();
            if (!date.isValid() || date >= limit)
                continue;
        }
        if (ignored.contains(*update))
            continue;
        if (!best || tx::isVersionNewer(update->version(), best->version()))
            best = update;
    }
    return best;
}

QList<TXUpdatePostPtr> TXUpdateTrack::postsSinceDate(const QDateTime &date) const {
    QList<TXUpdatePostPtr> result;
    for (const TXUpdatePostPtr &post : posts()) {
        const QDateTime postDate = post->date();
        if (!postDate.isValid() || postDate >= date)
            result.append(post);
    }
    return result;
}

QList<TXUpdatePostPtr> TXUpdateTrack::recentPosts() const {
    return postsSinceDate(tx::services().now().addSecs(-recentSeconds));
}

QDateTime TXUpdateTrack::dateOfMostRecentlyHandledPost() const {
    QDateTime latest;
    for (const QVariant &entry : postsCheckInfo().value(handledPostsKey).toList()) {
        const QDateTime date = tx::handledPostDate(entry.toMap().value(u"date"_s).toString());
        if (date.isValid() && (!latest.isValid() || date > latest))
            latest = date;
    }
    return latest;
}

QList<TXUpdatePostPtr> TXUpdateTrack::recentUnhandledPosts() const {
    const QDateTime latest = dateOfMostRecentlyHandledPost();
    return latest.isValid() ? postsSinceDate(latest) : recentPosts();
}

QList<TXUpdatePostPtr> TXUpdateTrack::unhandledPostsWithDisplayTime(TXUpdatePostDisplayTime time) const {
    const QVariantList handled = postsCheckInfo().value(handledPostsKey).toList();
    QList<TXUpdatePostPtr> result;
    for (const TXUpdatePostPtr &post : recentPosts()) {
        if (post->displayTime() == time && !handled.contains(tx::recordForm(post->identifier())))
            result.append(post);
    }
    return result;
}

QList<TXUpdatePostPtr> TXUpdateTrack::postsToDisplayDefault() const {
    return unhandledPostsWithDisplayTime(TXUpdatePostDisplayTimeDefault);
}

TXUpdateDateFormatter TXUpdateTrack::postsCheckDateFormatter() { return {}; }

QVariantMap TXUpdateTrack::postsCheckInfo() const {
    return tx::UserDefaults::standard()
        .mapValue(TXUpdatePrefPostsCheckInfoKey)
        .value(tx::recordForm(d->name))
        .toMap();
}

void TXUpdateTrack::updatePostsCheckInfoToHandlePosts(const QList<TXUpdatePostPtr> &posts) const {
    tx::UserDefaults &defaults = tx::UserDefaults::standard();
    QVariantMap record = defaults.mapValue(TXUpdatePrefPostsCheckInfoKey);
    const QString key = tx::recordForm(d->name);
    QVariantMap own = record.value(key).toMap();
    const QDateTime cutOff = tx::services().now().addSecs(-handledSeconds);
    QVariantList list;
    for (const QVariant &entry : own.value(handledPostsKey).toList()) {
        // The dates of posts have another form and cannot be parsed here, so the record keeps only what the
        // latest call handled.
        const QString text = entry.toMap().value(u"date"_s).toString();
        const QDateTime date = tx::handledPostDate(text);
        if (date.isValid() && date > cutOff)
            list.append(text);
    }
    for (const TXUpdatePostPtr &post : posts) {
        const QVariant identifier = tx::recordForm(post->identifier());
        if (!list.contains(identifier))
            list.append(identifier);
    }
    own.insert(handledPostsKey, list);
    record.insert(key, own);
    (void)defaults.setValue(TXUpdatePrefPostsCheckInfoKey, record);
}
