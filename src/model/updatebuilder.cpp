// SPDX-License-Identifier: MIT
#include "model/updatebuilder.h"

#include "base/queues.h"
#include "model/conditions.h"
#include "model/feedentry.h"
#include "model/feedvalues.h"
#include "model/update_p.h"

#include <QCoreApplication>
#include <QThread>

using Member = tx::FeedEntry::Member;

namespace tx {

bool excludesFromAutoDownloading(const FeedEntry &entry) {
    const std::string_view automatic = entry.bytes(Member::Autodownload);
    return automatic == "false" || automatic == "no" || automatic == "disable" || automatic == "disabled";
}

UpdateFields fieldsFrom(const PackedEntry &packed) {
    const FeedEntry entry = packed.read();
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
    fields.signatures = EntrySignatures::of(entry);
    fields.isFromSecureFeed = packed.isFromSecureFeed;
    fields.excludeFromAutoDownloading = excludesFromAutoDownloading(entry);
    fields.preferredDisplaySize = sizeFromFeedText(entry.text(Member::PreferredDisplaySize));
    if (packed.hasConditions)
        fields.conditions = conditionsFrom(entry);
    return fields;
}

TXUpdatePtr UpdateBuilder::make(PackedEntry entry) {
    auto *update = new TXUpdate;
    update->d.packed = std::move(entry);
    if (const QCoreApplication *application = QCoreApplication::instance())
        update->moveToThread(application->thread());
    return {update, [](TXUpdate *object) {
                if (object->thread() == QThread::currentThread() || !object->thread())
                    delete object;
                else
                    postToMain([owned = std::shared_ptr<TXUpdate>(object)] {});
            }};
}

EntrySignatures UpdateBuilder::signaturesOf(const TXUpdate &update) {
    return update.d.all ? update.d.all->signatures : EntrySignatures::of(update.d.packed.read());
}

} // namespace tx
