// SPDX-License-Identifier: MIT
#pragma once

#include "trust/appinfo.h"
#include "trust/feedsigning.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace tx::cli {

/// Signs a feed (JSON, or an appcast in any encoding) for an application. Makes sure that applications read
/// the same content from the result as from the original, whether they support signatures or not. If
/// `feedName` is null, the application's feed name is used. If `validDays` is absent, the signature does not
/// expire. Faults: Keys, if the application has keys and none of them signs; Input, Signature, FeedLine.
trust::Outcome<trust::SignedFeedDocument>
signDocument(const QByteArray &data, const trust::AppInfo &application, const QString &feedName,
             const std::vector<trust::SecretKey> &keys, std::optional<int> validDays);

} // namespace tx::cli
