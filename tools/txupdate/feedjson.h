// SPDX-License-Identifier: MIT
#pragma once

#include "feed/readercontext.h"

#include <QJsonObject>

namespace tx::cli {

/// Tracks and left-out entries as `feed show --json` prints them.
[[nodiscard]] QJsonObject feedAsJson(const TXUpdateFeed::TrackMap &tracks,
                                     const QList<SkippedEntry> &skipped);

/// {"error":{"domain","code","description","failureReason","recoverySuggestion"}}
[[nodiscard]] QJsonObject errorAsJson(const TXError &error);

/// One line on standard output.
void printJson(const QJsonObject &object);

/// What a person reads of the same.
void printFeed(const TXUpdateFeed::TrackMap &tracks, const QList<SkippedEntry> &skipped);

/// The error, for a person on standard error or as JSON on standard output.
void printError(const TXError &error, bool json);

} // namespace tx::cli
