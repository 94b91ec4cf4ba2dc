// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"
#include "feed/appcastitem.h"
#include "feed/readercontext.h"

namespace tx {

/// Reads an appcast. Its items are the updates of one track, "release". The error says what is wrong and
/// where. Thread: any; the items are moved to the main thread. If the caller moves the document in, its
/// memory is freed before the function returns.
Result<TXUpdateFeed::TrackMap> readAppcast(QByteArray data, const ReaderContext &context);

/// The update that an item describes; null, with the reason, when it lacks what an update needs.
TXUpdatePtr xml_updateFromDictionary(const AppcastItem &item, QString *failureReason);

} // namespace tx
