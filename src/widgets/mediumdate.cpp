// SPDX-License-Identifier: MIT
#include "widgets/mediumdate.h"

#include "os/directories.h"
#include "widgets/interfacefile.h"
#include "widgets/interfaceloader.h"

#include <QDateTime>
#include <QLocale>

namespace tx {

QString mediumDate(const QDateTime &date) {
    if (!date.isValid())
        return {};
    static const auto format = reinterpret_cast<DateFormatter>(interfaceFunction("txMediumDate"));
    const QDate day = date.toLocalTime().date();
    const QString text = format ? format(dateLocaleTag(), day) : QString();
    return text.isEmpty() ? QLocale().toString(day, QLocale::ShortFormat) : text;
}

} // namespace tx
