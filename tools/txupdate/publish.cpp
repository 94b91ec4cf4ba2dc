// SPDX-License-Identifier: MIT
#include "txupdate/publishcommands.h"

#include "install/archivelimits.h"
#include "model/itemdate.h"
#include "os/services.h"
#include "publish/configuration.h"
#include "publish/publication.h"
#include "trust/encoding.h"
#include "txupdate/commands.h"
#include "txupdate/faults.h"
#include "txupdate/feedjson.h"
#include "txupdate/feedsigner.h"
#include "txupdate/signingkeys.h"

#include <QFileInfo>
#include <QJsonArray>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tx::cli {

namespace {

using publishing::ArchiveType;
using publishing::Configuration;
using publishing::FeedPlace;
using publishing::PublishReport;

const QString usualConfiguration = u"txupdate.toml"_s;

Fault input(const QString &what) { return {FaultKind::Input, what.toStdString()}; }

/// Returns the first string that is not null.
QString firstOf(const QString &given, const QString &configured, const QString &usual = {}) {
    if (!given.isNull())
        return given;
    return configured.isNull() ? usual : configured;
}

Outcome<Configuration> configurationOf(const PlaceOptions &place) {
    if (place.configuration.isNull() && !QFileInfo::exists(usualConfiguration))
        return Configuration();
    return publishing::readConfiguration(firstOf(place.configuration, usualConfiguration));
}

/// The objects that a command works on. It must be constructed in place, because the feed's signer refers to
/// it.
struct Work {
    Configuration configuration;
    std::vector<trust::SecretKey> keys;
    trust::AppInfo application; ///< the application for which the feed is signed
    FeedPlace place;
    std::unique_ptr<publishing::Target> target;
    publishing::Trace trace;
    std::optional<int> validDays = 60;

    Work() = default;
    Work(const Work &) = delete;
    Work &operator=(const Work &) = delete;

    Verdict setUp(const PlaceOptions &options);
};

Verdict Work::setUp(const PlaceOptions &options) {
    const QString to = firstOf(options.to, configuration.to);
    const QString url = firstOf(options.url, configuration.url);
    if (to.isNull())
        return input(u"where to publish is not known: name a folder or a remote of rclone with --to, or in "
                     "txupdate.toml (txupdate init writes one)"_s);
    if (url.isNull())
        return input(u"the URL under which the published files are served is not known: name it with --url, "
                     "or in txupdate.toml"_s);
    place.feed = firstOf(options.feed, configuration.feed, place.feed);
    if (place.feed.contains(u'/') || place.feed.startsWith(u'.') || place.feed.isEmpty())
        return input(u"\"%1\" is not the name of a feed: a file name at the target was expected, such as "
                     "feed.json"_s.arg(place.feed));
    place.base = QUrl(url);
    place.feedName =
        firstOf(options.feedName, configuration.feedName, QString::fromStdString(application.feedName));
    place.isDryRun = options.isDryRun;
    place.isServed = options.isServed;
    if (!options.json) {
        place.say = [](const QString &line) {
            std::printf("%s\n", line.toUtf8().constData());
            std::fflush(stdout);
        };
    }
    if (const QString expires = firstOf(options.expires, configuration.expires.value_or(QString()));
        !expires.isNull())
        validDays = expires == u"never" ? std::nullopt : std::optional(expires.toInt());
    const QStringList names = options.keys.isEmpty() ? configuration.keys : options.keys;
    Outcome<std::vector<trust::SecretKey>> opened = openKeys(names, options.passphrase);
    if (!opened)
        return opened.fault();
    keys = *std::move(opened);
    if (!keys.empty()) {
        place.sign = [this](const QByteArray &document) -> Outcome<QByteArray> {
            const Outcome<trust::SignedFeedDocument> result =
                signDocument(document, application, place.feedName, keys, validDays);
            if (!result)
                return result.fault();
            return QByteArray::fromStdString(result->document);
        };
    }
    target = publishing::makeTarget(to);
    return std::nullopt;
}

QJsonObject asJson(const PublishReport &report) {
    QJsonArray archives;
    for (const PublishReport::File &file : report.archives)
        archives << QJsonObject{{u"name"_s, file.name},
                                {u"url"_s, file.url.toString(QUrl::FullyEncoded)},
                                {u"size"_s, qint64(file.size)}};
    const auto orNull = [](const QString &text) { return text.isEmpty() ? QJsonValue() : QJsonValue(text); };
    const QString state = report.state == PublishReport::State::Published   ? u"published"_s
                          : report.state == PublishReport::State::Unchanged ? u"unchanged"_s
                                                                            : u"dry run"_s;
    return {{u"state"_s, state},
            {u"identifier"_s, orNull(report.identifier)},
            {u"build"_s, orNull(report.build)},
            {u"version"_s, orNull(report.version)},
            {u"feed"_s, report.feed.toString(QUrl::FullyEncoded)},
            {u"notes"_s, orNull(report.notes.toString(QUrl::FullyEncoded))},
            {u"archives"_s, archives},
            {u"dropped"_s, QJsonArray::fromStringList(report.dropped)},
            {u"kept"_s, QJsonArray::fromStringList(report.kept)},
            {u"warnings"_s, QJsonArray::fromStringList(report.warnings)}};
}

int finish(const Outcome<PublishReport> &report, const Work &work, bool json, const QString &done) {
    if (report) {
        if (json)
            printJson(asJson(*report));
        for (const QString &warning : report->warnings)
            complain(u"warning: "_s + warning);
        if (!json && report->state == PublishReport::State::Published)
            std::printf("%s\n", done.toUtf8().constData());
        return ExitDone;
    }
    const QString why = QString::fromStdString(report.fault().what);
    const bool isHalf = work.trace.hasUploaded || work.trace.hasReplacedFeed;
    if (json)
        printJson({{u"error"_s, QJsonObject{{u"description"_s, why}, {u"uploaded"_s, isHalf}}}});
    else
        complain(why);
    if (!isHalf)
        return ExitFailed;
    if (!json)
        complain(work.trace.hasReplacedFeed
                     ? u"the new feed is out. Look at it before you go on: txupdate feed validate"_s
                     : u"the published feed is as it was; some files were uploaded. Run the same command "
                       "again"_s);
    return ExitRepeat;
}

int refused(const Fault &fault, bool json) {
    Work nothing;
    return finish(fault, nothing, json, {});
}

Outcome<std::optional<qint64>> sourceDate() {
    const QByteArray text = qgetenv("SOURCE_DATE_EPOCH");
    if (text.isNull())
        return std::optional<qint64>();
    const auto number = trust::parseNumber({text.constData(), size_t(text.size())});
    if (!number)
        return input(u"SOURCE_DATE_EPOCH is \"%1\": a number of seconds since 1970 was expected"_s.arg(
            QString::fromLocal8Bit(text)));
    return std::optional(qint64(*number));
}

Verdict readTypes(const QStringList &names, publishing::PublishRequest &request) {
    if (names.isEmpty())
        return std::nullopt;
    request.types.clear();
    for (const QString &name : names) {
        const std::optional<ArchiveType> type = publishing::typeOfSuffix(name);
        if (!type || request.types.contains(*type))
            return input(u"\"%1\" is not an archive's type, or is there twice: tgz, zip and tzst are "
                         "known"_s.arg(name));
        request.types << *type;
    }
    return std::nullopt;
}

/// Combines options and configuration into a request; the place is not filled in.
Outcome<publishing::PublishRequest> requestOf(const PublishOptions &options,
                                              const Configuration &configuration) {
    publishing::PublishRequest request;
    request.bundle = firstOf(options.bundle, configuration.bundle);
    if (request.bundle.isNull())
        return input(u"which application to publish is not known: name the bundle, or put \"bundle\" into "
                     "txupdate.toml"_s);
    if (Verdict wrong =
            readTypes(options.archives.isEmpty() ? configuration.archives : options.archives, request))
        return *std::move(wrong);
    request.tzstFrom = firstOf(options.tzstFrom, configuration.tzstFrom);
    request.track = firstOf(options.track, configuration.track, request.track);
    request.title = options.title;
    request.version = options.version;
    if (!options.date.isNull()) {
        request.date = itemDateFromString(options.date);
        if (!request.date.isValid())
            return input(u"the date \"%1\" is not of the form yyyy-MM-dd HH:mm:ss"_s.arg(options.date));
    }
    request.description = options.description;
    request.notes = options.notes;
    request.notesSize = options.notesSize;
    request.autodownload = firstOf(options.autodownload, configuration.autodownload);
    if (request.autodownload == u"yes")
        request.autodownload = QString();
    request.bounds = {options.minBuild, options.maxBuild, firstOf(options.minSystem, configuration.minSystem),
                      options.maxSystem};
    request.identifier = firstOf(options.identifier, configuration.identifier);
    const ArchiveLimits usual;
    request.limits = {
        options.largestArchive.value_or(configuration.largestArchive.value_or(usual.archive)),
        options.largestUnpacked.value_or(configuration.largestUnpacked.value_or(usual.unpacked))};
    const Outcome<std::optional<qint64>> newest = sourceDate();
    if (!newest)
        return newest.fault();
    request.newest = *newest;
    return request;
}

/// Reads the configuration, and determines the application for which the feed is signed.
Verdict setUpEdit(Work &work, const FeedEditOptions &options) {
    Outcome<Configuration> configuration = configurationOf(options.place);
    if (!configuration)
        return configuration.fault();
    work.configuration = *std::move(configuration);
    SignedFor application = options.application;
    if (application.bundle.isNull())
        application.identifier = firstOf(application.identifier, work.configuration.identifier);
    const bool signs = !options.place.keys.isEmpty() || !work.configuration.keys.isEmpty();
    if (signs && application.bundle.isNull() && application.identifier.isNull())
        return input(u"for which application the feed is signed is not known: name it with --app or "
                     "--identifier, or put \"identifier\" into txupdate.toml"_s);
    if (signs) {
        Outcome<trust::AppInfo> info = applicationOf(application);
        if (!info)
            return info.fault();
        work.application = *std::move(info);
    }
    return work.setUp(options.place);
}

} // namespace

int publish(const PublishOptions &options) {
    Work work;
    Outcome<Configuration> configuration = configurationOf(options.place);
    if (!configuration)
        return refused(configuration.fault(), options.place.json);
    work.configuration = *std::move(configuration);
    Outcome<publishing::PublishRequest> request = requestOf(options, work.configuration);
    if (!request)
        return refused(request.fault(), options.place.json);
    const Outcome<publishing::Application> application = publishing::readApplication(request->bundle);
    if (!application)
        return refused(application.fault(), options.place.json);
    work.application = application->info;
    if (const Verdict wrong = work.setUp(options.place))
        return refused(*wrong, options.place.json);
    request->place = work.place;
    request->keys = &work.keys;
    publishing::Progress progress(options.place.json ? -1 : STDERR_FILENO);
    const Outcome<PublishReport> report = publishing::publish(*request, *work.target, progress, work.trace);
    return finish(report, work, options.place.json,
                  report ? u"published build %1: %2"_s.arg(report->build, report->feed.toString())
                         : QString());
}

int withdraw(const FeedEditOptions &options) {
    Work work;
    if (const Verdict wrong = setUpEdit(work, options))
        return refused(*wrong, options.place.json);
    const QString track = firstOf(options.track, work.configuration.track, u"release"_s);
    const Outcome<PublishReport> report = publishing::withdraw(
        work.place, track, options.build, options.removesArchives, *work.target, work.trace);
    return finish(report, work, options.place.json, u"withdrew build "_s + options.build);
}

int feedResign(const FeedEditOptions &options) {
    Work work;
    if (const Verdict wrong = setUpEdit(work, options))
        return refused(*wrong, options.place.json);
    if (!work.place.sign)
        return refused(input(u"there is no key: name it with --key, or put \"key\" into txupdate.toml"_s),
                       options.place.json);
    const Outcome<PublishReport> report = publishing::resign(work.place, false, *work.target, work.trace);
    return finish(report, work, options.place.json, u"signed again: "_s + work.place.feed);
}

} // namespace tx::cli
