// SPDX-License-Identifier: MIT
#include "txupdate/feedjson.h"

#include "txupdate/commands.h"

#include <TarvixUpdate/TXUpdateSettings.h>

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

QJsonValue orNull(const QString &text) { return text.isNull() ? QJsonValue() : QJsonValue(text); }

QJsonValue orNull(const QUrl &url) {
    return url.isEmpty() ? QJsonValue() : QJsonValue(url.toString(QUrl::FullyEncoded));
}

QJsonValue orNull(const QDateTime &date) {
    return date.isValid() ? QJsonValue(date.toUTC().toString(Qt::ISODate)) : QJsonValue();
}

QJsonArray sizeAsJson(const QSizeF &size) { return {size.width(), size.height()}; }

QJsonValue conditionsAsJson(const std::optional<TXUpdateItemConditions> &conditions) {
    if (!conditions)
        return {};
    return QJsonObject{{u"minimumAppBuild"_s, orNull(conditions->minimumAppBuild)},
                       {u"maximumAppBuild"_s, orNull(conditions->maximumAppBuild)},
                       {u"minimumSystemVersion"_s, orNull(conditions->minimumSystemVersion)},
                       {u"maximumSystemVersion"_s, orNull(conditions->maximumSystemVersion)},
                       {u"launch"_s, static_cast<int>(conditions->launch)}};
}

QJsonObject updateAsJson(const TXUpdate &update) {
    return {{u"title"_s, orNull(update.title())},
            {u"version"_s, orNull(update.version())},
            {u"displayVersion"_s, orNull(update.displayVersion())},
            {u"dateString"_s, orNull(update.dateString())},
            {u"date"_s, orNull(update.date())},
            {u"itemDescription"_s, orNull(update.itemDescription())},
            {u"extra"_s, orNull(update.extra())},
            {u"releaseNotesURL"_s, orNull(update.releaseNotesURL())},
            {u"fileURL"_s, orNull(update.fileURL())},
            {u"linkURL"_s, orNull(update.linkURL())},
            {u"preferredDisplaySize"_s, sizeAsJson(update.preferredDisplaySize())},
            {u"conditions"_s, conditionsAsJson(update.conditions())},
            {u"excludeFromAutoDownloading"_s, update.excludeFromAutoDownloading()},
            {u"isMajorVersion"_s, update.isMajorVersion()},
            {u"isMinorVersion"_s, update.isMinorVersion()},
            {u"isBugfixVersion"_s, update.isBugfixVersion()},
            {u"isSigned"_s, update.isSigned()},
            {u"canBeDownloaded"_s, update.canBeDownloaded()},
            {u"downloadRefusal"_s, orNull(update.downloadRefusal().localizedFailureReason())}};
}

QJsonObject postAsJson(const TXUpdatePost &post) {
    return {{u"title"_s, orNull(post.title())},
            {u"postURL"_s, orNull(post.postURL())},
            {u"displayTime"_s, static_cast<int>(post.displayTime())},
            {u"dateString"_s, orNull(post.dateString())},
            {u"date"_s, orNull(post.date())},
            {u"endDateString"_s, orNull(post.endDateString())},
            {u"endDate"_s, orNull(post.endDate())},
            {u"conditions"_s, conditionsAsJson(post.conditions())},
            {u"preferredDisplaySize"_s, sizeAsJson(post.preferredDisplaySize())}};
}

void printLine(const QString &line) { std::printf("%s\n", line.toUtf8().constData()); }

QString shown(const QString &text) { return text.isEmpty() ? u"-"_s : text; }

} // namespace

QJsonObject feedAsJson(const TXUpdateFeed::TrackMap &tracks, const QList<SkippedEntry> &skipped) {
    QJsonArray trackList;
    for (const TXUpdateTrackPtr &track : tracks) {
        QJsonArray updates;
        for (const TXUpdatePtr &update : track->updates())
            updates.append(updateAsJson(*update));
        QJsonArray posts;
        for (const TXUpdatePostPtr &post : track->posts())
            posts.append(postAsJson(*post));
        const TXUpdatePtr recommended = track->recommendedUpdate();
        trackList.append(QJsonObject{
            {u"name"_s, track->name()},
            {u"recommendedUpdate"_s, recommended ? QJsonValue(recommended->version()) : QJsonValue()},
            {u"updates"_s, updates},
            {u"posts"_s, posts}});
    }
    QJsonArray skippedList;
    for (const SkippedEntry &entry : skipped)
        skippedList.append(
            QJsonObject{{u"track"_s, entry.track}, {u"index"_s, entry.index}, {u"reason"_s, entry.reason}});
    return {{u"tracks"_s, trackList}, {u"skipped"_s, skippedList}};
}

QJsonObject errorAsJson(const TXError &error) {
    return {
        {u"error"_s, QJsonObject{{u"domain"_s, error.domain()},
                                 {u"code"_s, error.code()},
                                 {u"description"_s, orNull(error.localizedDescription())},
                                 {u"failureReason"_s, orNull(error.localizedFailureReason())},
                                 {u"recoverySuggestion"_s, orNull(error.localizedRecoverySuggestion())}}}};
}

void printJson(const QJsonObject &object) {
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
}

void printFeed(const TXUpdateFeed::TrackMap &tracks, const QList<SkippedEntry> &skipped) {
    for (const TXUpdateTrackPtr &track : tracks) {
        const TXUpdatePtr recommended = track->recommendedUpdate();
        printLine(u"Track \"%1\": %2 updates, %3 posts"_s.arg(track->name())
                      .arg(track->updates().size())
                      .arg(track->posts().size()));
        for (const TXUpdatePtr &update : track->updates()) {
            const QDateTime date = update->date();
            printLine(u"  %1 %2 (build %3), %4, %5"_s.arg(
                update == recommended ? u"*"_s : u" "_s, shown(update->displayVersion()), update->version(),
                date.isValid() ? date.toUTC().toString(Qt::ISODate) : u"no date"_s, shown(update->title())));
            const TXError refusal = update->downloadRefusal();
            const bool showsArchive = update->canBeDownloaded() || refusal;
            printLine(u"      "_s + (showsArchive ? update->fileURL() : update->linkURL()).toString());
            if (refusal)
                printLine(u"      cannot be downloaded: "_s + refusal.localizedFailureReason());
        }
        for (const TXUpdatePostPtr &post : track->posts())
            printLine(u"    post \"%1\", %2"_s.arg(shown(post->title()), post->postURL().toString()));
        printLine(recommended ? u"  Recommended: build %1"_s.arg(recommended->version())
                              : u"  Nothing to recommend."_s);
    }
    if (tracks.isEmpty())
        printLine(u"The feed has no tracks."_s);
    if (!skipped.isEmpty())
        printLine(u"Left out:"_s);
    for (const SkippedEntry &entry : skipped)
        printLine(u"  %1[%2]: %3"_s.arg(entry.track).arg(entry.index).arg(entry.reason));
}

void printError(const TXError &error, bool json) {
    if (json) {
        printJson(errorAsJson(error));
        return;
    }
    complain(error.localizedDescription());
    // Publishers need the exact reason why a signature was refused; users do not.
    const bool isAboutTrust = error.domain() == TXUpdateErrorDomain;
    for (const QString &more : {error.localizedFailureReason(),
                                isAboutTrust ? error.underlyingError().localizedDescription() : QString(),
                                error.localizedRecoverySuggestion()}) {
        if (!more.isEmpty())
            complain(u"  "_s + more);
    }
}

} // namespace tx::cli
