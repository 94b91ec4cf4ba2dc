// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdatePost.h>

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

struct TXUpdatePost::Private : QSharedData {
    Private() = default;
    explicit Private(const TXUpdatePost &post)
        : title(post.title())
        , postURL(post.postURL())
        , displayTime(post.displayTime())
        , endDateString(post.endDateString())
        , dateString(post.dateString())
        , conditions(post.conditions())
        , preferredDisplaySize(post.preferredDisplaySize()) {}

    QString title;
    QUrl postURL;
    TXUpdatePostDisplayTime displayTime = TXUpdatePostDisplayTimeDefault;
    QString endDateString;
    QString dateString;
    std::optional<TXUpdateItemConditions> conditions;
    QSizeF preferredDisplaySize{0, 0};
};

TXUpdatePost::TXUpdatePost()
    : d(new Private) {}
TXUpdatePost::TXUpdatePost(tx::PackedEntry entry)
    : m_packed(std::move(entry)) {}
TXUpdatePost::TXUpdatePost(const TXUpdatePost &) = default;
TXUpdatePost &TXUpdatePost::operator=(const TXUpdatePost &) = default;
TXUpdatePost::~TXUpdatePost() = default;

TXUpdatePost::Private &TXUpdatePost::own() {
    if (!d) {
        d = new Private(*this);
        m_packed = {};
    }
    return *d;
}

QString TXUpdatePost::title() const { return d ? d->title : m_packed.read().text(Member::Title); }
void TXUpdatePost::setTitle(const QString &title) { own().title = title; }

QUrl TXUpdatePost::postURL() const {
    if (d)
        return d->postURL;
    const tx::FeedEntry entry = m_packed.read();
    QUrl result;
    for (const Member member : {Member::PostURL, Member::Url}) {
        if (const QUrl url = tx::urlFromFeedText(entry.bytes(member)); !url.isEmpty())
            result = url;
    }
    return result;
}
void TXUpdatePost::setPostURL(const QUrl &url) { own().postURL = url; }

TXUpdatePostDisplayTime TXUpdatePost::displayTime() const {
    return d ? d->displayTime : TXUpdatePostDisplayTimeFromString(m_packed.read().text(Member::Display));
}
void TXUpdatePost::setDisplayTime(TXUpdatePostDisplayTime time) { own().displayTime = time; }

QString TXUpdatePost::endDateString() const {
    return d ? d->endDateString : m_packed.read().text(Member::EndDate);
}
void TXUpdatePost::setEndDateString(const QString &text) { own().endDateString = text; }

QString TXUpdatePost::dateString() const { return d ? d->dateString : m_packed.read().text(Member::Date); }
void TXUpdatePost::setDateString(const QString &text) { own().dateString = text; }

std::optional<TXUpdateItemConditions> TXUpdatePost::conditions() const {
    return d ? d->conditions : tx::conditionsFrom(m_packed.read());
}
void TXUpdatePost::setConditions(const std::optional<TXUpdateItemConditions> &conditions) {
    own().conditions = conditions;
}

QSizeF TXUpdatePost::preferredDisplaySize() const {
    return d ? d->preferredDisplaySize
             : tx::sizeFromFeedText(m_packed.read().text(Member::PreferredDisplaySize));
}
void TXUpdatePost::setPreferredDisplaySize(const QSizeF &size) { own().preferredDisplaySize = size; }

QDateTime TXUpdatePost::date() const { return tx::itemDateFromString(dateString()); }

QDateTime TXUpdatePost::endDate() const { return tx::itemDateFromString(endDateString()); }

QVariantMap TXUpdatePost::identifier() const {
    // A reader of the record does not distinguish null and empty strings.
    const auto text = [](const QString &value) { return value.isNull() ? u""_s : value; };
    return {{u"date"_s, text(dateString())}, {u"title"_s, text(title())}};
}
