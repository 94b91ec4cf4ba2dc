// SPDX-License-Identifier: MIT
#include "model/itemdate.h"

#include <QTimeZone>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

/// The zone of the system's zone database; invalid without such a database.
const QTimeZone &pacificTime() {
    static const auto &zone = *new QTimeZone("America/Los_Angeles"); // a thread may outlast static objects
    return zone;
}

constexpr int standardOffset = -8 * 3600;
constexpr int summerOffset = -7 * 3600;

/// The nth Sunday of a month.
QDate sunday(int year, int month, int number) {
    const QDate first(year, month, 1);
    return first.addDays(Qt::Sunday - first.dayOfWeek() + 7 * (number - 1));
}

/// The number of `count` digits at `position`; -1 if there is anything but digits.
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
    // Parsed by hand: a general parser costs more than the rest of a feed entry.
    constexpr qsizetype length = 19;
    if (text.size() != length || text[4] != u'-' || text[7] != u'-' || text[10] != u' ' || text[13] != u':' ||
        text[16] != u':')
        return {};
    const QDate day(digits(text, 0, 4), digits(text, 5, 2), digits(text, 8, 2));
    const QTime time(digits(text, 11, 2), digits(text, 14, 2), digits(text, 17, 2));
    if (!day.isValid() || !time.isValid())
        return {};
    const QTimeZone &zone = pacificTime();
    if (!zone.isValid())
        return pacificTimeByRule(day, time);
        // Versions of Qt disagree about hours that do not exist or occur twice.
#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
    const QDateTime date(day, time, zone, QDateTime::TransitionResolution::PreferStandard);
#else
    const QDateTime date(day, time, zone);
#endif
    return date.time() == time ? date : QDateTime();
}

QDateTime itemDateFromUtf8(std::string_view text) {
    constexpr size_t length = 19; // each character of a date is one byte
    return text.size() == length ? itemDateFromString(QString::fromUtf8(text.data(), length)) : QDateTime();
}

QString itemDateToString(const QDateTime &date) {
    const QTimeZone &zone = pacificTime();
    const QDateTime there =
        zone.isValid() ? date.toTimeZone(zone) : date.toOffsetFromUtc(pacificOffsetByRule(date));
    return there.toString(u"yyyy-MM-dd HH:mm:ss"_s);
}

QDateTime pacificTimeByRule(QDate day, QTime time) {
    const QDate begin = sunday(day.year(), 3, 2);
    const QDate end = sunday(day.year(), 11, 1);
    if (day == begin && time.hour() == 2)
        return {}; // the hour that does not exist
    // The hour that occurs twice counts as standard time.
    const bool isSummer =
        (day > begin || (day == begin && time.hour() >= 3)) && (day < end || (day == end && time.hour() < 1));
    return QDateTime(day, time, QTimeZone(isSummer ? summerOffset : standardOffset));
}

int pacificOffsetByRule(const QDateTime &date) {
    // In standard time, summer time lasts from 2:00 to 1:00.
    const QDateTime standard = date.toOffsetFromUtc(standardOffset);
    const QDate day = standard.date();
    const QDate begin = sunday(day.year(), 3, 2);
    const QDate end = sunday(day.year(), 11, 1);
    const bool isSummer = (day > begin || (day == begin && standard.time().hour() >= 2)) &&
                          (day < end || (day == end && standard.time().hour() < 1));
    return isSummer ? summerOffset : standardOffset;
}

} // namespace tx
