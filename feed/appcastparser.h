// SPDX-License-Identifier: MIT
#pragma once

#include "feed/appcastitem.h"

#include <TarvixUpdate/TXError.h>

#include <QByteArray>

#include <functional>

namespace tx {

/// Calls `visit` with each item of the appcast, the elements /rss/channel/item, in document order, and its
/// place from 0. Items of a document that turns out to be broken further on have been visited by then.
///
/// The document is read strictly, in one pass, in UTF-8, UTF-16 or Latin-1 as it declares. Nothing outside it
/// is opened. Nesting and what entities expand to are bounded. Thread: any. Errors: what is wrong, and where.
TXError forEachAppcastItem(const QByteArray &document,
                           const std::function<void(const AppcastItem &item, qsizetype index)> &visit);

} // namespace tx
