// SPDX-License-Identifier: MIT
#include "feed/updateentry.h"

#include "feed/conditions.h"
#include "feed/feedvalues.h"
#include "feed/itemdate.h"
#include "install/updatebuilder.h"

#include <TarvixUpdate/TXLog.h>

using namespace Qt::StringLiterals;

namespace tx {

using Member = FeedEntry::Member;

bool hasAddress(const FeedEntry &entry) {
    return isFeedAddress(entry.bytes(Member::DownloadURL)) || isFeedAddress(entry.bytes(Member::WebpageURL));
}

void logMissingDate(const FeedEntry &entry) {
    if (TXLogGetLevel() < TXLogLevelDetail || itemDateFromString(entry.text(Member::Date)).isValid())
        return;
    (void)updateFrom(entry, WithConditions::No)->date(); // says what is wrong with the date
    TXLog(TXLogLevelDetail, u"Update has no date: %@"_s, {entry.description()});
}

TXUpdatePtr updateFrom(const FeedEntry &entry, WithConditions conditions, bool isSecure) {
    UpdateFields fields;
    fields.fileURL = encodedUrlFromFeedText(entry.bytes(Member::DownloadURL));
    fields.linkURL = encodedUrlFromFeedText(entry.bytes(Member::WebpageURL));
    fields.releaseNotesURL = encodedUrlFromFeedText(entry.bytes(Member::ReleaseNotesURL));
    fields.title = entry.text(Member::Title);
    fields.itemDescription = entry.text(Member::Description);
    fields.dateString = entry.text(Member::Date);
    fields.version = entry.text(Member::Build);
    fields.displayVersion = entry.has(Member::Version) ? entry.text(Member::Version) : fields.version;
    fields.extra = entry.text(Member::Extra);
    fields.isFromSecureFeed = isSecure;
    const std::string_view automatic = entry.bytes(Member::Autodownload);
    fields.excludeFromAutoDownloading =
        automatic == "false" || automatic == "no" || automatic == "disable" || automatic == "disabled";
    if (entry.has(Member::PreferredDisplaySize))
        fields.preferredDisplaySize = sizeFromFeedText(entry.text(Member::PreferredDisplaySize));
    if (conditions == WithConditions::Yes)
        fields.conditions = conditionsFrom(entry);
    return UpdateBuilder::make(std::move(fields));
}

QList<TXUpdatePtr> updatesFrom(const PackedEntries &entries, WithConditions conditions, bool isSecure) {
    QList<TXUpdatePtr> result;
    entries.forEach([&](const FeedEntry &entry) { result.append(updateFrom(entry, conditions, isSecure)); });
    return result;
}

} // namespace tx
