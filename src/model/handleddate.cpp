// SPDX-License-Identifier: MIT
#include "model/handleddate.h"

#include <QRegularExpression>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace tx {

QDateTime handledPostDate(const QString &text) {
    // Never destroyed: a thread may outlast static objects.
    static const auto &form =
        *new QRegularExpression(u"^(\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2})([+-])(\\d{2}):?(\\d{2})$"_s);
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch())
        return {};
    const int offset = match.captured(3).toInt() * 3600 + match.captured(4).toInt() * 60;
    // Read as UTC first: the user's zone may lack an hour that the record's zone has.
    QDateTime date = QDateTime::fromString(match.captured(1) + u'Z', Qt::ISODate);
    if (!date.isValid())
        return {};
    date.setOffsetFromUtc(match.captured(2) == u"-" ? -offset : offset);
    return date;
}

QString handledPostDateText(const QDateTime &date) {
    if (!date.isValid())
        return {};
    const QDateTime local = date.toLocalTime();
    const int minutes = local.offsetFromUtc() / 60;
    const auto twoDigits = [](int number) { return u"%1"_s.arg(number, 2, 10, QChar(u'0')); };
    return local.toString(u"yyyy-MM-ddTHH:mm:ss"_s) + (minutes < 0 ? u'-' : u'+') +
           twoDigits(std::abs(minutes) / 60) + twoDigits(std::abs(minutes) % 60);
}

} // namespace tx
