// SPDX-License-Identifier: MIT
#include "base/format.h"

#include "base/shared.h"

using namespace Qt::StringLiterals;

namespace tx {

namespace {

struct Conversion {
    qsizetype end = -1; ///< position behind it; -1 when the percent sign begins none
    qsizetype argument = -1;
};

/// Reads the conversion at the percent sign at `start`.
Conversion conversionAt(QStringView format, qsizetype start) {
    Conversion result;
    qsizetype position = start + 1;
    qsizetype number = 0;
    const qsizetype digits = position;
    while (position < format.size() && format[position] >= u'0' && format[position] <= u'9')
        number = number * 10 + (format[position++].unicode() - u'0');
    if (position > digits) {
        if (position >= format.size() || format[position] != u'$')
            return result;
        result.argument = number - 1;
        ++position;
    }
    while (position < format.size() && format[position] == u'l')
        ++position;
    if (position < format.size() && QStringView(u"@sdiu").contains(format[position]))
        result.end = position + 1;
    return result;
}

} // namespace

TX_SHARED QString formatText(const QString &format, const QStringList &arguments) {
    QString result;
    result.reserve(format.size() + 16 * arguments.size());
    qsizetype next = 0;
    for (qsizetype i = 0; i < format.size();) {
        if (format[i] != u'%') {
            result += format[i++];
            continue;
        }
        if (i + 1 < format.size() && format[i + 1] == u'%') {
            result += u'%';
            i += 2;
            continue;
        }
        const Conversion conversion = conversionAt(format, i);
        if (conversion.end < 0) {
            result += format[i++];
            continue;
        }
        const qsizetype index = conversion.argument >= 0 ? conversion.argument : next++;
        const QString argument = index < arguments.size() ? arguments[index] : QString();
        result += argument.isNull() ? u"(null)"_s : argument;
        i = conversion.end;
    }
    return result;
}

QString insideSingleQuotes(const QString &text) { return QString(text).replace(u'\'', u"'\\''"_s); }

} // namespace tx
