// SPDX-License-Identifier: MIT
#include "model/feedvalues.h"
#include "publish/faults.h"
#include "publish/feedreplacement.h"

using namespace Qt::StringLiterals;

namespace tx::publishing {

namespace {

void say(const FeedPlace &place, const QString &line) {
    if (place.say)
        place.say(line);
}

/// Replaces the feed and reports problems with the way it is served.
Verdict finish(const FeedPlace &place, FeedReplacement &feed, PublishReport &report, Trace &trace) {
    report.state = PublishReport::State::DryRun;
    if (place.isDryRun)
        return std::nullopt;
    if (Verdict failed = feed.replace(trace))
        return failed;
    report.state = PublishReport::State::Published;
    if (place.isServed)
        report.warnings = feed.doubtsAboutServer();
    return std::nullopt;
}

} // namespace

Outcome<PublishReport> withdraw(const FeedPlace &place, const QString &track, const QString &build,
                                bool removesArchives, Target &target, Trace &trace) {
    Outcome<FeedReplacement> feed = FeedReplacement::begin(place, target);
    if (!feed)
        return feed.fault();
    PublishReport report;
    report.build = build;
    report.feed = urlOf(place, place.feed);
    QList<qsizetype> dropped;
    QStringList others;
    QStringList names;
    QStringList stillNamed;
    const QList<FeedDocument::Entry> &entries = feed->document().entries();
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const JsonEntry &members = entries[i].members;
        const QUrl url = urlFromFeedText(members.value(u"downloadURL"_s).text);
        const bool isTheOne =
            entries[i].track == track && isBuild(members) && members.value(u"build"_s).text == build;
        if (!isTheOne) {
            stillNamed << url.fileName();
            if (entries[i].track == track && isBuild(members))
                others << members.value(u"build"_s).text;
            continue;
        }
        dropped << i;
        // Only archives at this target, not files of the same name elsewhere.
        if (url == urlOf(place, url.fileName()))
            names << url.fileName();
        report.dropped << u"build %1, %2"_s.arg(build, url.fileName());
    }
    if (dropped.isEmpty())
        return Fault{FaultKind::Input,
                     u"the feed has no build %1 in the track \"%2\". It has: %3"_s
                         .arg(build, track, others.isEmpty() ? u"none"_s : others.join(u", "_s))
                         .toStdString()};
    if (Verdict refused = feed->edit(track, {}, dropped))
        return *std::move(refused);
    for (const QString &entry : std::as_const(report.dropped))
        say(place, u"- "_s + entry);
    if (others.isEmpty())
        report.warnings << u"the track has no build left, so applications see no update"_s;
    const QStringList warnings = report.warnings;
    if (Verdict failed = finish(place, *feed, report, trace))
        return *std::move(failed);
    report.warnings = warnings + report.warnings;
    if (!removesArchives || place.isDryRun)
        return report;
    for (const QString &name : std::as_const(names)) {
        if (stillNamed.contains(name))
            continue;
        if (Verdict failed = target.remove(name))
            return *std::move(failed);
        say(place, u"removed %1"_s.arg(name));
    }
    return report;
}

Outcome<PublishReport> resign(const FeedPlace &place, bool begins, Target &target, Trace &trace) {
    Outcome<FeedReplacement> feed = FeedReplacement::begin(place, target);
    if (!feed)
        return feed.fault();
    if (!feed->exists() && !begins)
        return Fault{FaultKind::Input, u"there is no %1 at %2: publish first, or look at the names"_s
                                           .arg(place.feed, target.description())
                                           .toStdString()};
    PublishReport report;
    report.feed = urlOf(place, place.feed);
    if (Verdict refused = feed->edit({}, {}, {}))
        return *std::move(refused);
    if (Verdict failed = finish(place, *feed, report, trace))
        return *std::move(failed);
    return report;
}

} // namespace tx::publishing
