// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QByteArray>
#include <QVariant>

namespace tx {

enum class PropertyListFormat { Xml, Binary };

/// Reads an XML or binary property list: bool, qint64, quint64, double, QString, QDateTime (UTC), QByteArray,
/// QVariantList and QVariantMap. Errors: domain "TXUpdater", the reason in the text.
Result<QVariant> readPropertyList(const QByteArray &data);

/// Writes the same types and int; a value of another type is written as its text. Dates keep whole seconds.
[[nodiscard]] QByteArray writePropertyList(const QVariant &value,
                                           PropertyListFormat format = PropertyListFormat::Xml);

} // namespace tx
