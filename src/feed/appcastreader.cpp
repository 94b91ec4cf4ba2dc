// SPDX-License-Identifier: MIT
#include "feed/appcastreader.h"

#include "feed/appcastparser.h"
#include "feed/feedbudget.h"
#include "model/relevance.h"
#include "model/track_p.h"
#include "model/updateentry.h"
#include "model/versioncomparison.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

using Member = FeedEntry::Member;

const QString releaseTrack = u"release"_s;

/// Elements of an item, or attributes of its enclosure, that are read. Bounds of the system's version are not
/// among them: an item of an appcast has no conditions.
constexpr std::pair<const char *, Member> versionNames[] = {
    {"sparkle:version", Member::Build},
    {"sparkle:shortVersionString", Member::Version},
    {"sparkle:extra", Member::Extra},
};

void setFrom(FeedEntry &entry, Member member, const NamedTexts &texts, std::string_view name) {
    if (const std::string *text = texts.find(name))
        entry.set(member, *text);
}

void setSignaturesFrom(FeedEntry &entry, const AppcastItem &item) {
    constexpr std::string_view name = "txupdate:signature";
    setFrom(entry, Member::EscapedSignature, item.elements, name);
    if (!item.hasEnclosure)
        return;
    setFrom(entry, Member::EscapedSignature, item.enclosure, name);
    setFrom(entry, Member::PlainSignature, item.enclosure, "sparkle:edSignature");
    setFrom(entry, Member::Length, item.enclosure, "length");
}

/// The item's strings under the member names of JSON feeds. Refers to the item.
FeedEntry entryFrom(const AppcastItem &item) {
    FeedEntry entry;
    setFrom(entry, Member::Title, item.elements, "title");
    setFrom(entry, Member::Description, item.elements, "description");
    setFrom(entry, Member::Date, item.elements, "pubDate");
    setFrom(entry, Member::ReleaseNotesURL, item.elements, "sparkle:releaseNotesLink");
    for (const auto &[name, member] : versionNames)
        setFrom(entry, member, item.elements, name);
    if (item.hasEnclosure) {
        setFrom(entry, Member::DownloadURL, item.enclosure, "url");
        for (const auto &[name, member] : versionNames)
            setFrom(entry, member, item.enclosure, name);
    }
    setFrom(entry, Member::WebpageURL, item.elements, "link");
    return entry;
}

bool describesUpdate(const FeedEntry &entry, QString *failureReason) {
    return hasWhatAnUpdateNeeds(entry, u"Feed item lacks sparkle:version attribute"_s,
                                u"Feed item lacks enclosure element with URL or a link element."_s,
                                failureReason);
}

} // namespace

Result<TXUpdateFeed::TrackMap> readAppcast(QByteArray data, const ReaderContext &context) {
    const QByteArray document = std::move(data); // a parameter is destroyed only when the caller decides
    PackedEntries updates;
    FeedBudget budget(document.size());
    const TXError error =
        forEachAppcastItem(document, [&](const AppcastItem &item, qsizetype index) -> TXError {
            FeedEntry entry = entryFrom(item);
            if (context.trust || context.keepsSignatures)
                setSignaturesFrom(entry, item);
            QString reason;
            if (describesUpdate(entry, context.skipped ? &reason : nullptr)) {
                const QString version = entry.text(Member::Build);
                const bool isWanted = context.keepsIrrelevant || isVersionNewer(version, context.appBuild);
                if (isWanted || context.skipped)
                    reason = reasonAgainstSignatures(entry, context);
                if (isWanted && reason.isNull()) {
                    if (!context.keepsIrrelevant && !budget.takeUpdate(entry))
                        return unreadableFeed(u"its items take too much memory"_s);
                    updates.append(entry);
                    return {};
                }
                if (context.skipped && reason.isNull())
                    reason =
                        describe(Objection::NotNewer, {}, version, context.appBuild, context.systemVersion);
            }
            if (context.skipped)
                context.skipped({releaseTrack, index, reason});
            return {};
        });
    if (error)
        return error;
    const TXUpdateTrackPtr track =
        TXUpdateTrackPrivate::trackWithItems(releaseTrack,
                                             [updates = std::move(updates), isSecure = context.isSecure] {
                                                 return updatesFrom(updates, WithConditions::No, isSecure);
                                             },
                                             {});
    return TXUpdateFeed::TrackMap{{releaseTrack, track}};
}

TXUpdatePtr xml_updateFromDictionary(const AppcastItem &item, QString *failureReason) {
    const FeedEntry entry = entryFrom(item);
    return describesUpdate(entry, failureReason) ? updateFrom(entry, WithConditions::No) : nullptr;
}

} // namespace tx
