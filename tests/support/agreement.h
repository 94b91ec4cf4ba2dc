// SPDX-License-Identifier: MIT
#pragma once

#include "posix/plainpropertylist.h"

#include <QDateTime>
#include <QVariant>

#include <cmath>

namespace tx::test {

/// True when the plain reader and the framework's read the same value.
[[nodiscard]] inline bool isSame(const plain::Value &plain, const QVariant &framework) {
    if (const auto *flag = std::get_if<bool>(&plain.content))
        return framework.typeId() == QMetaType::Bool && framework.toBool() == *flag;
    if (const auto *number = std::get_if<int64_t>(&plain.content))
        return framework.typeId() == QMetaType::LongLong && framework.toLongLong() == *number;
    if (const auto *number = std::get_if<double>(&plain.content)) {
        const double other = framework.toDouble();
        return framework.typeId() == QMetaType::Double &&
               (*number == other || (*number != *number && other != other));
    }
    if (const auto *text = std::get_if<std::string>(&plain.content))
        return framework.typeId() == QMetaType::QString && framework.toString().toStdString() == *text;
    if (const auto *date = std::get_if<plain::Date>(&plain.content)) {
        constexpr double reference = 978307200;
        return framework.typeId() == QMetaType::QDateTime &&
               std::fabs(static_cast<double>(framework.toDateTime().toSecsSinceEpoch()) - reference -
                         date->seconds) < 2;
    }
    if (const auto *data = std::get_if<plain::Data>(&plain.content))
        return framework.typeId() == QMetaType::QByteArray &&
               framework.toByteArray().toStdString() == data->bytes;
    if (const auto *array = std::get_if<plain::Array>(&plain.content)) {
        const QVariantList list = framework.toList();
        if (framework.typeId() != QMetaType::QVariantList || list.size() != qsizetype(array->size()))
            return false;
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (!isSame((*array)[size_t(i)], list[i]))
                return false;
        }
        return true;
    }
    const auto &dictionary = std::get<plain::Dictionary>(plain.content);
    const QVariantMap map = framework.toMap();
    if (framework.typeId() != QMetaType::QVariantMap || map.size() != qsizetype(dictionary.size()))
        return false;
    for (const auto &[key, value] : dictionary) {
        const QString name = QString::fromStdString(key);
        if (!map.contains(name) || !isSame(value, map[name]))
            return false;
    }
    return true;
}

} // namespace tx::test
