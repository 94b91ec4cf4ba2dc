// SPDX-License-Identifier: MIT
#include "model/updateentry.h"

#include "base/log.h"
#include "model/feedvalues.h"
#include "model/itemdate.h"
#include "model/updatebuilder.h"

#include <TarvixUpdate/TXLog.h>

using namespace Qt::StringLiterals;

namespace tx {

using Member = FeedEntry::Member;

bool hasWhatAnUpdateNeeds(const FeedEntry &entry, const QString &noBuild, const QString &noURL,
                          QString *failureReason) {
    const bool hasBuild = entry.has(Member::Build);
    if (hasBuild &&
        (isFeedAddress(entry.bytes(Member::DownloadURL)) || isFeedAddress(entry.bytes(Member::WebpageURL))))
        return true;
    if (failureReason)
        *failureReason = hasBuild ? noURL : noBuild;
    return false;
}

void logMissingDate(const FeedEntry &entry) {
    if (!isLogged(TXLogLevelDetail) || itemDateFromUtf8(entry.bytes(Member::Date)).isValid())
        return;
    FeedEntry date;
    date.set(Member::Date, entry.bytes(Member::Date));
    (void)updateFrom(date, WithConditions::No)->date(); // logs what is wrong with the date
    TXLog(TXLogLevelDetail, u"Update has no date: %@"_s, {entry.description()});
}

TXUpdatePtr updateFrom(const FeedEntry &entry, WithConditions conditions, bool isSecure) {
    PackedEntry single = packed(entry);
    single.hasConditions = conditions == WithConditions::Yes;
    single.isFromSecureFeed = isSecure;
    return UpdateBuilder::make(std::move(single));
}

QList<TXUpdatePtr> updatesFrom(const PackedEntries &entries, WithConditions conditions, bool isSecure) {
    QList<TXUpdatePtr> result;
    result.reserve(entries.size());
    entries.forEach([&](PackedEntry entry) {
        entry.hasConditions = conditions == WithConditions::Yes;
        entry.isFromSecureFeed = isSecure;
        result.append(UpdateBuilder::make(std::move(entry)));
    });
    return result;
}

} // namespace tx
