// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace tx {

/// What is wrong when a document that looks like JSON is not served as such, and what to do: it is read as an
/// appcast, as everything is whose type is not exactly "application/json". Null when it does not look like
/// JSON, or has that type. Thread: any.
[[nodiscard]] QString mistakeInType(const QByteArray &contentType, const QByteArray &document);

} // namespace tx
