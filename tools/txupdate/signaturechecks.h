// SPDX-License-Identifier: MIT
#pragma once

#include "feed/readercontext.h"
#include "trust/appinfo.h"
#include "trust/firstline.h"

#include <QStringList>

namespace tx::cli {

/// What is wrong with the signatures of a feed, for its publisher.
struct SignatureFindings {
    QStringList errors;
    QStringList warnings;
    bool isSigned = false; ///< the feed itself
};

/// Takes the first line of a signed feed off `document`, and looks at it. With an application that has keys
/// and wants a signed feed, the feed is verified as it would do; without, its signature is only read. Warns
/// when less than 14 days of its validity are left.
[[nodiscard]] SignatureFindings takeSignature(QByteArray &document, trust::FeedFormat servedAs,
                                              const trust::AppInfo *application);

/// Looks at the signatures of the entries, which were read with `keepsSignatures`. With the keys of an
/// application, each is verified as far as that can be done without its archive. An entry without one is
/// named where `expectsAll`, or where another entry has one.
void checkSignatures(const TXUpdateFeed::TrackMap &tracks, const trust::AppInfo *application, bool expectsAll,
                     SignatureFindings &findings);

} // namespace tx::cli
