// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "feed/readercontext.h"
#include "model/feedentry.h"

namespace tx {

/// Reads a JSON feed: an object with one list of entries a track. The error says what is wrong and where; the
/// whole feed fails with it. Thread: any; the items are moved to the main thread. A document that is moved
/// here has gone afterwards.
Result<TXUpdateFeed::TrackMap> readJsonFeed(QByteArray data, const ReaderContext &context);

/// An entry of type "build"; null, with the reason, when it lacks what an update needs.
TXUpdatePtr json_updateFromDictionary(const FeedEntry &entry, QString *failureReason);
/// An entry of type "post" or "post.v2".
TXUpdatePostPtr json_postFromDictionary(const FeedEntry &entry, QString *failureReason);

} // namespace tx
