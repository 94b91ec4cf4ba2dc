// SPDX-License-Identifier: MIT
#include "base/propertylist.h"

#include "base/binarypropertylist.h"

#include <QDateTime>

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr qsizetype maximumSize = 64 << 20;
constexpr int maximumDepth = 128;
/// Seconds from 1970 to 2001, the epoch of property lists.
constexpr qint64 referenceDate = 978307200;

QVariant toVariant(plist_t node, int depth, bool &tooDeep);

QVariant toList(plist_t node, int depth, bool &tooDeep) {
    QVariantList list;
    for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
        list.append(toVariant(plist_array_get_item(node, i), depth + 1, tooDeep));
    return list;
}

QVariant toMap(plist_t node, int depth, bool &tooDeep) {
    QVariantMap map;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &key, &value);
        if (!value)
            break;
        map.insert(QString::fromUtf8(key), toVariant(value, depth + 1, tooDeep));
        std::free(key);
    }
    std::free(iterator);
    return map;
}

QVariant toVariant(plist_t node, int depth, bool &tooDeep) {
    if (depth > maximumDepth) {
        tooDeep = true;
        return {};
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return QVariant::fromValue<qint64>(static_cast<qint64>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_STRING: {
        char *value = nullptr;
        plist_get_string_val(node, &value);
        const QString text = QString::fromUtf8(value ? value : "");
        std::free(value);
        return text;
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return QDateTime::fromMSecsSinceEpoch((referenceDate + seconds) * 1000 + microseconds / 1000,
                                              Qt::UTC);
    }
    case PLIST_DATA: {
        char *value = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &value, &length);
        const QByteArray data(value, static_cast<qsizetype>(length));
        std::free(value);
        return data;
    }
    case PLIST_ARRAY:
        return toList(node, depth, tooDeep);
    case PLIST_DICT:
        return toMap(node, depth, tooDeep);
    default:
        return {};
    }
}

/// A character that XML 1.0 cannot represent would make the whole file unreadable.
QByteArray xmlSafe(const QString &text) {
    QString safe = text;
    for (QChar &c : safe) {
        const char16_t unit = c.unicode();
        if ((unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r') || unit == 0xFFFE ||
            unit == 0xFFFF)
            c = QChar::ReplacementCharacter;
    }
    return safe.toUtf8();
}

plist_t fromVariant(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return plist_new_uint(static_cast<uint64_t>(value.toLongLong()));
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QDateTime:
        return plist_new_date(static_cast<int32_t>(value.toDateTime().toSecsSinceEpoch() - referenceDate), 0);
    case QMetaType::QByteArray: {
        const QByteArray data = value.toByteArray();
        return plist_new_data(data.constData(), static_cast<uint64_t>(data.size()));
    }
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        plist_t list = plist_new_array();
        for (const QVariant &element : value.toList())
            plist_array_append_item(list, fromVariant(element));
        return list;
    }
    case QMetaType::QVariantMap: {
        plist_t map = plist_new_dict();
        const QVariantMap members = value.toMap();
        for (auto it = members.begin(); it != members.end(); ++it)
            plist_dict_set_item(map, xmlSafe(it.key()).constData(), fromVariant(it.value()));
        return map;
    }
    default:
        return plist_new_string(xmlSafe(value.toString()).constData());
    }
}

TXError unreadable(const QString &reason) {
    return TXError(u"TXUpdater"_s, 0, u"The property list cannot be read: "_s + reason, reason);
}

} // namespace

Result<QVariant> readPropertyList(const QByteArray &data) {
    if (data.size() > maximumSize)
        return unreadable(u"it is too large"_s);
    // The library asserts that strings contain no NUL, and would end the process.
    const bool isBinary = data.startsWith("bplist");
    const bool hasNul = isBinary ? holdsNulCharacter(data) : data.contains('\0');
    if (hasNul)
        return unreadable(u"a text in it holds a NUL character"_s);
    // By name, because newer releases of the library also guess formats that describe no application.
    plist_t root = nullptr;
    if (isBinary)
        plist_from_bin(data.constData(), static_cast<uint32_t>(data.size()), &root);
    else if (!data.isEmpty())
        plist_from_xml(data.constData(), static_cast<uint32_t>(data.size()), &root);
    if (!root)
        return unreadable(u"it is neither an XML nor a binary property list"_s);
    const std::unique_ptr<void, decltype(&plist_free)> owner(root, &plist_free);
    bool tooDeep = false;
    QVariant value = toVariant(root, 0, tooDeep);
    if (tooDeep)
        return unreadable(u"it is nested too deeply"_s);
    return value;
}

QByteArray writePropertyList(const QVariant &value, PropertyListFormat format) {
    const std::unique_ptr<void, decltype(&plist_free)> root(fromVariant(value), &plist_free);
    char *text = nullptr;
    uint32_t length = 0;
    if (format == PropertyListFormat::Xml)
        plist_to_xml(root.get(), &text, &length);
    else
        plist_to_bin(root.get(), &text, &length);
    const QByteArray result(text, static_cast<qsizetype>(length));
    std::free(text);
    return result;
}

} // namespace tx
