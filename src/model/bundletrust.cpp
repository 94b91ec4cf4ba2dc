// SPDX-License-Identifier: MIT
#include "model/bundletrust.h"

#include <QDateTime>
#include <QVariant>

namespace tx::trust {

namespace {

/// The values that matter here; others become one that is none of them.
plain::Value plainValue(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::QString:
        return {value.toString().toStdString()};
    case QMetaType::Bool:
        return {value.toBool()};
    case QMetaType::QDateTime:
        return {plain::Date{double(value.toDateTime().toMSecsSinceEpoch()) / 1000 - 978307200.0}};
    case QMetaType::QVariantList: {
        plain::Array list;
        for (const QVariant &element : value.toList())
            list.push_back(plainValue(element));
        return {std::move(list)};
    }
    default:
        return {plain::Data{}};
    }
}

} // namespace

Outcome<AppInfo> infoOfBundle(const TXBundle &bundle) {
    plain::Dictionary info;
    const QVariantMap values = bundle.infoDictionary();
    for (auto it = values.begin(); it != values.end(); ++it)
        info.push_back({it.key().toStdString(), plainValue(it.value())});
    return AppInfo::read({std::move(info)});
}

} // namespace tx::trust
