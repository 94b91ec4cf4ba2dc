// SPDX-License-Identifier: MIT
#include "feed/requestbody.h"

#include <TarvixUpdate/TXLog.h>

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <type_traits>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

template <typename Integer>
QByteArray digitsOf(const QVariant &value) {
    using Widest = std::conditional_t<std::is_signed_v<Integer>, qlonglong, qulonglong>;
    return QByteArray::number(static_cast<Widest>(*static_cast<const Integer *>(value.constData())));
}

/// The digits of an integer of any type, including character types; null for a value that is not an integer.
/// Qt's JSON writer knows only some of these types and rounds large numbers.
QByteArray integerText(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::Char:
        return digitsOf<char>(value);
    case QMetaType::SChar:
        return digitsOf<signed char>(value);
    case QMetaType::UChar:
        return digitsOf<unsigned char>(value);
    case QMetaType::Char16:
        return digitsOf<char16_t>(value);
    case QMetaType::Char32:
        return digitsOf<char32_t>(value);
    case QMetaType::Short:
        return digitsOf<short>(value);
    case QMetaType::UShort:
        return digitsOf<unsigned short>(value);
    case QMetaType::Int:
        return digitsOf<int>(value);
    case QMetaType::UInt:
        return digitsOf<unsigned>(value);
    case QMetaType::Long:
        return digitsOf<long>(value);
    case QMetaType::ULong:
        return digitsOf<unsigned long>(value);
    case QMetaType::LongLong:
        return digitsOf<qlonglong>(value);
    case QMetaType::ULongLong:
        return digitsOf<qulonglong>(value);
    default:
        return {};
    }
}

bool isReal(const QVariant &value) {
    return value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float;
}

bool isNumber(const QVariant &value) {
    return value.typeId() == QMetaType::Bool || isReal(value) || !integerText(value).isNull();
}

bool isList(const QVariant &value) {
    return value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
}

bool isMap(const QVariant &value) {
    return value.typeId() == QMetaType::QVariantMap || value.typeId() == QMetaType::QVariantHash;
}

bool fitsJson(const QVariant &value) {
    if (isNumber(value))
        return !isReal(value) || std::isfinite(value.toDouble());
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

/// Formats a string or a floating-point number exactly as QJsonDocument does.
QByteArray scalarJson(const QJsonValue &value) {
    const QByteArray list = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return list.mid(1, list.size() - 2);
}

void appendJson(QByteArray &json, const QVariant &value, int level);

/// The elements between brackets, each on its own line.
template <typename Container, typename AppendElement>
void appendElements(QByteArray &json, const Container &elements, int level, const char *brackets,
                    const AppendElement &appendElement) {
    constexpr qsizetype indentation = 4;
    json += brackets[0];
    const char *separator = "\n";
    for (auto it = elements.begin(); it != elements.end(); ++it) {
        json += separator + QByteArray((level + 1) * indentation, ' ');
        appendElement(it);
        separator = ",\n";
    }
    if (!elements.isEmpty())
        json += '\n' + QByteArray(level * indentation, ' ');
    json += brackets[1];
}

void appendJson(QByteArray &json, const QVariant &value, int level) {
    if (const QByteArray integer = integerText(value); !integer.isNull())
        json += integer;
    else if (value.typeId() == QMetaType::Bool)
        json += value.toBool() ? "true" : "false";
    else if (isReal(value))
        json += scalarJson(value.toDouble());
    else if (isList(value))
        appendElements(json, value.toList(), level, "[]",
                       [&](const auto &it) { appendJson(json, *it, level + 1); });
    else if (isMap(value))
        appendElements(json, value.toMap(), level, "{}", [&](const auto &it) {
            json += scalarJson(it.key()) + ": ";
            appendJson(json, it.value(), level + 1);
        });
    else if (value.typeId() == QMetaType::Nullptr)
        json += "null";
    else
        json += scalarJson(value.toString());
}

} // namespace

QString descriptionOf(const QVariant &value) {
    if (!value.isValid() || value.typeId() == QMetaType::Nullptr)
        return u"<null>"_s;
    if (const QByteArray integer = integerText(value); !integer.isNull())
        return QString::fromLatin1(integer);
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

QByteArray jsonFromMembers(const QVariantMap &members) {
    QByteArray json;
    appendJson(json, members, 0);
    return json += '\n';
}

} // namespace tx
