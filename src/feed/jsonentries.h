// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <functional>

namespace tx {

/// The value of a member: the string, or the JSON text of any other value.
struct JsonMember {
    QString text;
    bool isText = false;
};
using JsonEntry = QMap<QString, JsonMember>;

/// Calls `work` for each entry of a JSON feed, whatever its type, with the name of its track and its place
/// there; of tracks and members with the same name the last one counts. It takes values as the reader of
/// feeds does. False when the document cannot be read; `work` has then not been called. Thread: any.
[[nodiscard]] bool
forEachJsonEntry(const QByteArray &feed,
                 const std::function<void(const QString &, const JsonEntry &, qsizetype)> &work);

} // namespace tx
