// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "feed/readercontext.h"
#include "model/feedentry.h"

namespace tx {

/// Reads a JSON feed: an object with one list of entries for each track. An error fails the whole feed and
/// says what is wrong and where. Thread: any; the items are moved to the main thread. If the caller moves the
/// document in, its memory is freed before the function returns.
Result<TXUpdateFeed::TrackMap> readJsonFeed(QByteArray data, const ReaderContext &context);

/// An entry of type "build"; null, with the reason, when it lacks what an update needs.
TXUpdatePtr json_updateFromDictionary(const FeedEntry &entry, QString *failureReason);
/// An entry of type "post" or "post.v2".
TXUpdatePostPtr json_postFromDictionary(const FeedEntry &entry, QString *failureReason);

} // namespace tx
