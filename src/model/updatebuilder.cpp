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

UpdateFields fieldsFrom(const ItemContent<UpdateDetails> &content) {
    const FeedEntry entry = content.entry();
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
    fields.isFromSecureFeed = content.isFromSecureFeed();
    fields.excludeFromAutoDownloading = excludesFromAutoDownloading(entry);
    fields.preferredDisplaySize = sizeFromFeedText(entry.text(Member::PreferredDisplaySize));
    if (content.hasConditions())
        fields.conditions = conditionsFrom(entry);
    return fields;
}

TXUpdatePtr UpdateBuilder::make(PackedEntry entry) { return TXUpdatePrivate::make(std::move(entry)); }

UpdateDetails &detailsOf(const TXUpdate &update) { return TXUpdatePrivate::of(update).details(); }

EntrySignatures UpdateBuilder::signaturesOf(const TXUpdate &update) {
    const TXUpdatePrivate &content = TXUpdatePrivate::of(update);
    return content.fields() ? content.fields()->signatures : EntrySignatures::of(content.entry());
}

} // namespace tx

struct TXUpdatePrivate::WithItem {
    explicit WithItem(tx::PackedEntry entry)
        : content(std::move(entry))
        , update(content) {
        content.setBesideItem(true);
    }
    TXUpdatePrivate content;
    TXUpdate update;
};

TXUpdatePtr TXUpdatePrivate::make(tx::PackedEntry entry) {
    auto *both = new WithItem(std::move(entry));
    if (const QCoreApplication *application = QCoreApplication::instance())
        both->update.moveToThread(application->thread());
    const std::shared_ptr<WithItem> owner(both, [](WithItem *object) {
        if (object->update.thread() == QThread::currentThread() || !object->update.thread())
            delete object;
        else
            tx::postToMain([owned = std::shared_ptr<WithItem>(object)] {});
    });
    return {owner, &both->update};
}

tx::UpdateDetails &TXUpdatePrivate::details() {
    if (!fields()) {
        auto details = std::make_shared<tx::UpdateDetails>();
        static_cast<tx::UpdateFields &>(*details) = tx::fieldsFrom(*this);
        setFields(std::move(details));
    }
    return *fields();
}
