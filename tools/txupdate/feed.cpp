// SPDX-License-Identifier: MIT
#include "txupdate/commands.h"

#include "feed/appcastreader.h"
#include "feed/jsonreader.h"
#include "feed/servedtype.h"
#include "os/services.h"
#include "trust/firstline.h"
#include "txupdate/archivechecks.h"
#include "txupdate/feedjson.h"
#include "txupdate/feedsource.h"
#include "txupdate/publisherchecks.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

/// Reads a source with the matching reader. The error is the one that an application would get, with details.
Result<TXUpdateFeed::TrackMap> readFeed(const FeedSource &source, const ReaderContext &context) {
    if (source.isJson)
        return readJsonFeed(source.data, context);
    if (const QString mistake = mistakeInType(source.type, source.data); !mistake.isNull())
        complain(mistake);
    return readAppcast(source.data, context);
}

int failed(const TXError &error, const FeedOptions &options) {
    // The position of the fault is for the publisher; the error is what the application gets.
    const TXError formatError = TXUpdateFeed::errorForInvalidFormat();
    const bool isFormat = !error.localizedFailureReason().isNull() &&
                          error.domain() == formatError.domain() &&
                          error.localizedDescription().startsWith(u"The feed cannot be read"_s);
    if (isFormat)
        complain(u"%1: %2"_s.arg(options.source, error.localizedFailureReason()));
    printError(isFormat ? formatError : error, options.json);
    return ExitFailed;
}

} // namespace

int feedShow(const FeedOptions &options) {
    const Result<FeedSource> source = readSource(options);
    if (!source)
        return failed(source.error(), options);
    QList<SkippedEntry> skipped;
    ReaderContext context;
    context.appBuild = options.build;
    context.systemVersion = options.system;
    context.now = services().now();
    context.isSecure = source->url.scheme() == u"https";
    context.skipped = [&](const SkippedEntry &entry) { skipped.append(entry); };
    const auto tracks = readFeed(*source, context);
    if (!tracks)
        return failed(tracks.error(), options);
    if (options.json)
        printJson(feedAsJson(*tracks, skipped));
    else
        printFeed(*tracks, skipped);
    return ExitDone;
}

namespace {

/// The first line of a signed feed is for `feed verify`: no entry of the publisher's is in it.
void dropSignature(QByteArray &document) {
    const auto line = trust::findUnreadLine({document.constData(), size_t(document.size())});
    if (line)
        document.remove(
            0, qsizetype(trust::putBeginningBeforeBody(document.data(), line->format, line->bodyAt)));
}

} // namespace

int feedValidate(const FeedOptions &options) {
    Result<FeedSource> source = readSource(options);
    if (!source)
        return failed(source.error(), options);
    dropSignature(source->data);
    QList<SkippedEntry> dropped;
    ReaderContext context;
    context.now = services().now();
    context.keepsIrrelevant = true;
    context.isSecure = source->url.scheme() == u"https";
    context.skipped = [&](const SkippedEntry &entry) { dropped.append(entry); };
    const auto tracks = readFeed(*source, context);
    if (!tracks)
        return failed(tracks.error(), options);
    if (source->isJson)
        dropped += endedPosts(source->data, context.now);
    QList<SkippedEntry> doubtful =
        source->isJson ? doubtsAbout(source->data) : doubtsAboutAppcast(source->data);
    // The URL from which a file will be served is unknown.
    const bool isSecure = source->url.scheme() == u"https";
    QList<SkippedEntry> refused;
    if (isSecure || source->url.isEmpty())
        (isSecure ? refused : doubtful) += insecureArchives(source->data, source->isJson);
    for (const SkippedEntry &entry : dropped + refused)
        std::printf("error: %s\n",
                    u"%1[%2]: %3"_s.arg(entry.track).arg(entry.index).arg(entry.reason).toUtf8().constData());
    for (const SkippedEntry &entry : doubtful)
        std::printf("warning: %s\n",
                    u"%1[%2]: %3"_s.arg(entry.track).arg(entry.index).arg(entry.reason).toUtf8().constData());
    qsizetype kept = 0;
    for (const TXUpdateTrackPtr &track : *tracks)
        kept += track->updates().size() + track->posts().size();
    std::printf("%lld tracks, %lld entries kept, %lld dropped, %lld doubts\n",
                static_cast<long long>(tracks->size()), static_cast<long long>(kept),
                static_cast<long long>(dropped.size()), static_cast<long long>(doubtful.size()));
    const bool archivesPass = !options.archives || checkArchives(*tracks, options.app);
    return dropped.isEmpty() && refused.isEmpty() && archivesPass ? ExitDone : ExitFailed;
}

} // namespace tx::cli
