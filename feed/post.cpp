// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdatePost.h>

#include "feed/itemdate.h"

using namespace Qt::StringLiterals;

TXUpdatePostDisplayTime TXUpdatePostDisplayTimeFromString(const QString &text) {
    if (text == u"atQuit")
        return TXUpdatePostDisplayTimeAtQuit;
    if (text == u"passive")
        return TXUpdatePostDisplayTimePassive;
    return TXUpdatePostDisplayTimeDefault;
}

TXUpdatePost::TXUpdatePost() = default;
TXUpdatePost::~TXUpdatePost() = default;

QDateTime TXUpdatePost::date() const { return tx::itemDateFromString(m_dateString); }

QDateTime TXUpdatePost::endDate() const { return tx::itemDateFromString(m_endDateString); }

QVariantMap TXUpdatePost::identifier() const {
    // Null and empty texts are one and the same to a reader of the record.
    const auto text = [](const QString &value) { return value.isNull() ? u""_s : value; };
    return {{u"date"_s, text(m_dateString)}, {u"title"_s, text(m_title)}};
}
