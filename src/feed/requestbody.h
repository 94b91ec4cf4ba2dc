// SPDX-License-Identifier: MIT
#pragma once

#include <QVariantMap>

namespace tx {

/// The members of the request's JSON body: the profile, then the parameters. A list or dictionary that JSON
/// cannot hold, and every value that is neither text, number, list nor dictionary, becomes its description.
[[nodiscard]] QVariantMap requestMembers(const QVariantMap &profile, const QVariantMap &parameters);

/// The members as a JSON object, a member a line. Integers of every type are numbers, with all their digits.
[[nodiscard]] QByteArray jsonFromMembers(const QVariantMap &members);

/// Formats a value: dates as "2024-01-31 12:00:00 +0000", data as "<00ff>", collections with their elements.
[[nodiscard]] QString descriptionOf(const QVariant &value);

} // namespace tx
