// SPDX-License-Identifier: MIT
#pragma once

#include "trust/appinfo.h"
#include "trust/feedsigning.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace tx::cli {

/// Signs a feed, JSON or appcast in any encoding, for an application, and makes sure that applications see in
/// the result what was in the feed before, whether they know of signatures or not. `feedName`: null for the
/// application's. `validDays`: absent for ever. Faults: Keys, when the application has keys and none of
/// these; Input, Signature, FeedLine.
trust::Outcome<trust::SignedFeedDocument>
signDocument(const QByteArray &data, const trust::AppInfo &application, const QString &feedName,
             const std::vector<trust::SecretKey> &keys, std::optional<int> validDays);

} // namespace tx::cli
