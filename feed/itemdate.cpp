// SPDX-License-Identifier: MIT
#include "feed/itemdate.h"

#include <QTimeZone>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QTimeZone &pacificTime() {
    static const auto &zone = *new QTimeZone("America/Los_Angeles"); // a thread may outlast static objects
    return zone;
}

/// The number of `count` digits at `position`; -1 when something else stands there.
int digits(QStringView text, qsizetype position, qsizetype count) {
    int value = 0;
    for (qsizetype i = position; i < position + count; ++i) {
        const char16_t unit = text[i].unicode();
        if (unit < u'0' || unit > u'9')
            return -1;
        value = value * 10 + (unit - u'0');
    }
    return value;
}

} // namespace

QDateTime itemDateFromString(QStringView text) {
    // Taken apart by hand: a general parser costs more than the rest of a feed entry.
    constexpr qsizetype length = 19;
    if (text.size() != length || text[4] != u'-' || text[7] != u'-' || text[10] != u' ' || text[13] != u':' ||
        text[16] != u':')
        return {};
    const QDate day(digits(text, 0, 4), digits(text, 5, 2), digits(text, 8, 2));
    const QTime time(digits(text, 11, 2), digits(text, 14, 2), digits(text, 17, 2));
    if (!day.isValid() || !time.isValid())
        return {};
    return QDateTime(day, time, pacificTime());
}

QString itemDateToString(const QDateTime &date) {
    return date.toTimeZone(pacificTime()).toString(u"yyyy-MM-dd HH:mm:ss"_s);
}

} // namespace tx
