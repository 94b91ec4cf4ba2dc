// SPDX-License-Identifier: MIT
#include "txupdate/commands.h"

#include "feed/admission.h"
#include "feed/appcastreader.h"
#include "feed/jsonreader.h"
#include "feed/servedtype.h"
#include "model/hosttrust.h"
#include "model/names.h"
#include "os/services.h"
#include "txupdate/archivechecks.h"
#include "txupdate/feedjson.h"
#include "txupdate/feedsource.h"
#include "txupdate/publisherchecks.h"
#include "txupdate/signaturechecks.h"

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

/// Returns the application whose keys verify the feed. Absent if the user named none.
Result<std::optional<trust::AppInfo>> applicationFor(const FeedOptions &options) {
    if (options.app.isNull())
        return std::optional<trust::AppInfo>();
    if (!adopt(options.app)) // adopt() has reported the error
        return TXError(updaterErrorDomain, 0, u"There is no application to look at the feed for."_s);
    const Result<trust::AppInfo> info = hostTrust();
    return info ? Result<std::optional<trust::AppInfo>>(*info) : info.error();
}

trust::FeedFormat formatOf(const FeedSource &source) {
    return source.isJson ? trust::FeedFormat::Json : trust::FeedFormat::Xml;
}

const trust::AppInfo *withKeys(const std::optional<trust::AppInfo> &application) {
    return application && application->keys ? &*application : nullptr;
}

void print(const char *kind, const QStringList &lines) {
    for (const QString &line : lines)
        std::printf("%s: %s\n", kind, line.toUtf8().constData());
}

void print(const char *kind, const QList<SkippedEntry> &entries) {
    for (const SkippedEntry &entry : entries)
        print(kind, QStringList{u"%1[%2]: %3"_s.arg(entry.track).arg(entry.index).arg(entry.reason)});
}

} // namespace

int feedShow(const FeedOptions &options) {
    const auto application = applicationFor(options);
    if (!application)
        return failed(application.error(), options);
    Result<FeedSource> source = readSource(options);
    if (!source)
        return failed(source.error(), options);
    const auto claim = admitFeed(source->data, formatOf(*source), application->value_or(trust::AppInfo()),
                                 FeedMemory::Ignored);
    if (!claim)
        return failed(claim.error(), options);
    QList<SkippedEntry> skipped;
    ReaderContext context;
    context.appBuild = options.build;
    context.systemVersion = options.system;
    context.now = services().now();
    context.isSecure = source->url.scheme() == u"https";
    context.trust = withKeys(*application);
    context.isSigned = claim->has_value();
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

int feedValidate(const FeedOptions &options) {
    const auto application = applicationFor(options);
    if (!application)
        return failed(application.error(), options);
    Result<FeedSource> source = readSource(options);
    if (!source)
        return failed(source.error(), options);
    SignatureFindings findings = takeSignature(source->data, formatOf(*source), withKeys(*application));
    QList<SkippedEntry> dropped;
    ReaderContext context;
    context.now = services().now();
    context.keepsIrrelevant = true;
    context.keepsSignatures = true;
    context.isSecure = source->url.scheme() == u"https";
    context.skipped = [&](const SkippedEntry &entry) { dropped.append(entry); };
    const auto tracks = readFeed(*source, context);
    if (!tracks) {
        print("error", findings.errors);
        return failed(tracks.error(), options);
    }
    checkSignatures(*tracks, withKeys(*application), findings.isSigned, findings);
    if (source->isJson)
        dropped += endedPosts(source->data, context.now);
    QList<SkippedEntry> doubtful =
        source->isJson ? doubtsAbout(source->data) : doubtsAboutAppcast(source->data);
    // The URL from which a file will be served is unknown.
    const bool isSecure = source->url.scheme() == u"https";
    QList<SkippedEntry> refused;
    if (isSecure || source->url.isEmpty())
        (isSecure ? refused : doubtful) += insecureArchives(source->data, source->isJson);
    print("error", findings.errors);
    print("error", dropped + refused);
    print("warning", findings.warnings);
    print("warning", doubtful);
    qsizetype kept = 0;
    for (const TXUpdateTrackPtr &track : *tracks)
        kept += track->updates().size() + track->posts().size();
    std::printf("%lld tracks, %lld entries kept, %lld dropped, %lld doubts\n",
                static_cast<long long>(tracks->size()), static_cast<long long>(kept),
                static_cast<long long>(dropped.size()),
                static_cast<long long>(doubtful.size() + findings.warnings.size()));
    const bool archivesPass = !options.archives || checkArchives(*tracks, options.app);
    return dropped.isEmpty() && refused.isEmpty() && findings.errors.isEmpty() && archivesPass ? ExitDone
                                                                                               : ExitFailed;
}

} // namespace tx::cli
