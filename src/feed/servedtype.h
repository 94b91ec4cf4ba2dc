// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace tx {

/// Returns a message if a document that looks like JSON was not served as "application/json": what is wrong,
/// and what to do. Any other type makes the framework read it as an appcast. Null if the type is right or the
/// document does not look like JSON. Thread: any.
[[nodiscard]] QString mistakeInType(const QByteArray &contentType, const QByteArray &document);

} // namespace tx
