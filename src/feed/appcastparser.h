// SPDX-License-Identifier: MIT
#pragma once

#include "feed/appcastitem.h"

#include <TarvixUpdate/TXError.h>

#include <QByteArray>

#include <functional>

namespace tx {

/// Called with an item of an appcast and its place from 0; an error ends the reading.
using AppcastVisitor = std::function<TXError(const AppcastItem &item, qsizetype index)>;

/// Calls `visit` with each item of the appcast, the elements /rss/channel/item, in document order. If the
/// document is malformed, the items before the error have been visited.
///
/// The document is parsed strictly, in one pass, in UTF-8, UTF-16 or Latin-1 as it declares. External
/// entities are never opened. Nesting depth, the lengths of tags and of the document type, the number of
/// elements in an item and the size of expanded entities are limited, so that neither memory nor time grow
/// faster than the document. Thread: any. Errors: those of `visit`, otherwise what is malformed and where.
TXError forEachAppcastItem(const QByteArray &document, const AppcastVisitor &visit);

} // namespace tx
