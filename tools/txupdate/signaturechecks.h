// SPDX-License-Identifier: MIT
#pragma once

#include "feed/readercontext.h"
#include "trust/appinfo.h"
#include "trust/firstline.h"

#include <QStringList>

namespace tx::cli {

/// Problems with a feed's signatures, for its publisher.
struct SignatureFindings {
    QStringList errors;
    QStringList warnings;
    bool isSigned = false; ///< the feed itself is signed
};

/// Checks the signature line of a signed feed and removes it from `document`. With an application that has
/// keys and requires a signed feed, the feed is verified as that application would do it. Without one, the
/// signature is only parsed. Warns if the signature expires in less than 14 days.
[[nodiscard]] SignatureFindings takeSignature(QByteArray &document, trust::FeedFormat servedAs,
                                              const trust::AppInfo *application);

/// Checks the signatures of the entries; `tracks` must have been parsed with `keepsSignatures`. With an
/// application's keys, each signature is verified as far as possible without the archive. Reports an entry
/// without a signature if `expectsAll` is set or another entry has one.
void checkSignatures(const TXUpdateFeed::TrackMap &tracks, const trust::AppInfo *application, bool expectsAll,
                     SignatureFindings &findings);

} // namespace tx::cli
