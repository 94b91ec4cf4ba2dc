// SPDX-License-Identifier: MIT
#pragma once

#include "feed/appcastitem.h"

#include <TarvixUpdate/TXError.h>

#include <QByteArray>

#include <functional>

namespace tx {

/// Called with an item of an appcast and its place from 0; an error ends the reading.
using AppcastVisitor = std::function<TXError(const AppcastItem &item, qsizetype index)>;

/// Calls `visit` with each item of the appcast, the elements /rss/channel/item, in document order. Items of a
/// document that turns out to be broken further on have been visited by then.
///
/// The document is read strictly, in one pass, in UTF-8, UTF-16 or Latin-1 as it declares. Nothing outside it
/// is opened. Nesting, the lengths of tags and of the document type, the number of an item's elements and
/// what entities expand to are bounded, so that neither memory nor time grow faster than the document.
/// Thread: any. Errors: those of `visit`, else what is wrong, and where.
TXError forEachAppcastItem(const QByteArray &document, const AppcastVisitor &visit);

} // namespace tx
