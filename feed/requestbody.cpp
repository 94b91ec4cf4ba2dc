// SPDX-License-Identifier: MIT
#include "feed/requestbody.h"

#include <TarvixUpdate/TXLog.h>

#include <QDateTime>
#include <QUrl>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

bool isNumber(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

bool isList(const QVariant &value) {
    return value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
}

bool isMap(const QVariant &value) {
    return value.typeId() == QMetaType::QVariantMap || value.typeId() == QMetaType::QVariantHash;
}

bool fitsJson(const QVariant &value) {
    if (isNumber(value))
        return std::isfinite(value.toDouble());
    if (isList(value)) {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), fitsJson);
    }
    if (isMap(value)) {
        const QVariantMap map = value.toMap();
        return std::all_of(map.begin(), map.end(), fitsJson);
    }
    return value.typeId() == QMetaType::QString || value.typeId() == QMetaType::Nullptr;
}

} // namespace

QString descriptionOf(const QVariant &value) {
    if (!value.isValid() || value.typeId() == QMetaType::Nullptr)
        return u"<null>"_s;
    switch (value.typeId()) {
    case QMetaType::QDateTime:
        return value.toDateTime().toUTC().toString(u"yyyy-MM-dd HH:mm:ss"_s) + u" +0000"_s;
    case QMetaType::QUrl:
        return value.toUrl().toString(QUrl::FullyEncoded);
    case QMetaType::QByteArray:
        return u'<' + QString::fromLatin1(value.toByteArray().toHex()) + u'>';
    case QMetaType::Bool:
        return value.toBool() ? u"1"_s : u"0"_s;
    default:
        break;
    }
    if (isList(value)) {
        QStringList parts;
        for (const QVariant &element : value.toList())
            parts << descriptionOf(element);
        return u'(' + parts.join(u", "_s) + u')';
    }
    if (isMap(value)) {
        QStringList parts;
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            parts << it.key() + u" = "_s + descriptionOf(it.value()) + u';';
        return u'{' + parts.join(u' ') + u'}';
    }
    if (value.canConvert<QString>())
        return value.toString();
    return u'<' + QString::fromLatin1(value.typeName()) + u'>';
}

QVariantMap requestMembers(const QVariantMap &profile, const QVariantMap &parameters) {
    QVariantMap result;
    if (!profile.isEmpty())
        result.insert(u"systemProfile"_s, profile);
    for (auto it = parameters.begin(); it != parameters.end(); ++it) {
        const QVariant &value = it.value();
        const bool isText = value.typeId() == QMetaType::QString;
        if (isNumber(value) && !fitsJson(value)) {
            TXLog(TXLogLevelFailure, u"ERROR making json string for update info"_s);
            TXLog(TXLogLevelFailure, u"%@"_s, {descriptionOf(parameters)});
        }
        const bool isCollection = isList(value) || isMap(value);
        if (isText || ((isNumber(value) || isCollection) && fitsJson(value)))
            result.insert(it.key(), value);
        else
            result.insert(it.key(), descriptionOf(value));
    }
    return result;
}

} // namespace tx
