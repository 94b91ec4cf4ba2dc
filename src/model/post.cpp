// SPDX-License-Identifier: MIT
#include "model/post_p.h"

#include "model/conditions.h"
#include "model/feedentry.h"
#include "model/feedvalues.h"
#include "model/itemdate.h"

using namespace Qt::StringLiterals;
using Member = tx::FeedEntry::Member;

TXUpdatePostDisplayTime TXUpdatePostDisplayTimeFromString(const QString &text) {
    if (text == u"atQuit")
        return TXUpdatePostDisplayTimeAtQuit;
    if (text == u"passive")
        return TXUpdatePostDisplayTimePassive;
    return TXUpdatePostDisplayTimeDefault;
}

struct TXUpdatePostPrivate::WithItem {
    explicit WithItem(tx::PackedEntry entry)
        : content(std::move(entry))
        , post(content) {
        content.setBesideItem(true);
    }
    TXUpdatePostPrivate content;
    TXUpdatePost post;
};

TXUpdatePostPtr TXUpdatePostPrivate::make(tx::PackedEntry entry) {
    const auto both = std::make_shared<WithItem>(std::move(entry));
    return {both, &both->post};
}

tx::PostFields &TXUpdatePostPrivate::fieldsToChange(TXUpdatePost &post) {
    TXUpdatePostPrivate &content = *post.d;
    if (!content.fields())
        content.setFields(std::make_shared<tx::PostFields>(
            tx::PostFields{post.title(), post.postURL(), post.displayTime(), post.endDateString(),
                           post.dateString(), post.conditions(), post.preferredDisplaySize()}));
    else if (content.areFieldsShared())
        content.setFields(std::make_shared<tx::PostFields>(*content.fields()));
    return *content.fields();
}

TXUpdatePost::TXUpdatePost()
    : d(new TXUpdatePostPrivate) {}
TXUpdatePost::TXUpdatePost(TXUpdatePostPrivate &content)
    : d(&content) {}
TXUpdatePost::TXUpdatePost(const TXUpdatePost &other)
    : TXUpdateItem(other)
    , d(new TXUpdatePostPrivate(*other.d)) {
    d->setBesideItem(false);
}

TXUpdatePost &TXUpdatePost::operator=(const TXUpdatePost &other) {
    if (this == &other)
        return *this;
    const bool isBesideItem = d->isBesideItem();
    *d = *other.d;
    d->setBesideItem(isBesideItem);
    return *this;
}

TXUpdatePost::~TXUpdatePost() {
    if (!d->isBesideItem())
        delete d;
}

QString TXUpdatePost::title() const {
    return d->fields() ? d->fields()->title : d->entry().text(Member::Title);
}
void TXUpdatePost::setTitle(const QString &title) {
    TXUpdatePostPrivate::fieldsToChange(*this).title = title;
}

QUrl TXUpdatePost::postURL() const {
    if (const tx::PostFields *own = d->fields())
        return own->postURL;
    const tx::FeedEntry entry = d->entry();
    QUrl result;
    for (const Member member : {Member::PostURL, Member::Url}) {
        if (const QUrl url = tx::urlFromFeedText(entry.bytes(member)); !url.isEmpty())
            result = url;
    }
    return result;
}
void TXUpdatePost::setPostURL(const QUrl &url) { TXUpdatePostPrivate::fieldsToChange(*this).postURL = url; }

TXUpdatePostDisplayTime TXUpdatePost::displayTime() const {
    return d->fields() ? d->fields()->displayTime
                       : TXUpdatePostDisplayTimeFromString(d->entry().text(Member::Display));
}
void TXUpdatePost::setDisplayTime(TXUpdatePostDisplayTime time) {
    TXUpdatePostPrivate::fieldsToChange(*this).displayTime = time;
}

QString TXUpdatePost::endDateString() const {
    return d->fields() ? d->fields()->endDateString : d->entry().text(Member::EndDate);
}
void TXUpdatePost::setEndDateString(const QString &text) {
    TXUpdatePostPrivate::fieldsToChange(*this).endDateString = text;
}

QString TXUpdatePost::dateString() const {
    return d->fields() ? d->fields()->dateString : d->entry().text(Member::Date);
}
void TXUpdatePost::setDateString(const QString &text) {
    TXUpdatePostPrivate::fieldsToChange(*this).dateString = text;
}

std::optional<TXUpdateItemConditions> TXUpdatePost::conditions() const {
    if (const tx::PostFields *own = d->fields())
        return own->conditions;
    return d->hasEntry() ? std::optional(tx::conditionsFrom(d->entry())) : std::nullopt;
}
void TXUpdatePost::setConditions(const std::optional<TXUpdateItemConditions> &conditions) {
    TXUpdatePostPrivate::fieldsToChange(*this).conditions = conditions;
}

QSizeF TXUpdatePost::preferredDisplaySize() const {
    return d->fields() ? d->fields()->preferredDisplaySize
                       : tx::sizeFromFeedText(d->entry().text(Member::PreferredDisplaySize));
}
void TXUpdatePost::setPreferredDisplaySize(const QSizeF &size) {
    TXUpdatePostPrivate::fieldsToChange(*this).preferredDisplaySize = size;
}

QDateTime TXUpdatePost::date() const { return tx::itemDateFromString(dateString()); }

QDateTime TXUpdatePost::endDate() const { return tx::itemDateFromString(endDateString()); }

QVariantMap TXUpdatePost::identifier() const {
    // A reader of the record does not distinguish null and empty strings.
    const auto text = [](const QString &value) { return value.isNull() ? u""_s : value; };
    return {{u"date"_s, text(dateString())}, {u"title"_s, text(title())}};
}
