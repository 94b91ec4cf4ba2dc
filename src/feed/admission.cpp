// SPDX-License-Identifier: MIT
#include "feed/admission.h"

#include "model/feedmemory.h"
#include "os/localization.h"
#include "os/services.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateSettings.h>

#include <span>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

TXError refusal(TXUpdateErrorCode code, const QString &reason, const QString &advice,
                const std::string &what) {
    return TXError(TXUpdateErrorDomain, code,
                   localizedString(u"The update information could not be verified."_s), reason, advice)
        .withUnderlyingError(TXError(TXUpdateErrorDomain, code, QString::fromStdString(what)));
}

QString tryLater() {
    return localizedString(u"Try again later, or download the latest version from the website."_s);
}

/// Returns a null error if the feed is fresh.
TXError errorFor(trust::Freshness freshness, const trust::FeedClaim &claim) {
    const std::string what = trust::feedComment(claim);
    switch (freshness) {
    case trust::Freshness::Fresh:
        return {};
    case trust::Freshness::AheadOfClock:
        return refusal(TXUpdateErrorFeedAheadOfClock,
                       localizedString(u"It is dated more than a day after the time of this computer."_s),
                       localizedString(u"Set the date and the time of this computer, then try again."_s),
                       what);
    case trust::Freshness::Older:
        return refusal(TXUpdateErrorFeedOlder,
                       localizedString(u"The server's copy is older than one that this application has "
                                       "received before."_s),
                       tryLater(), what);
    case trust::Freshness::Expired:
        break;
    }
    return refusal(TXUpdateErrorFeedExpired, localizedString(u"It has expired."_s),
                   localizedString(u"Check the date and the time of this computer. If they are right, try "
                                   "again later, or download the latest version from the website."_s),
                   what);
}

std::span<char> bytesOf(QByteArray &document) { return {document.data(), size_t(document.size())}; }

} // namespace

TXError feedTrustError(const trust::Fault &fault) {
    if (fault.kind == trust::FaultKind::Unsigned)
        return refusal(TXUpdateErrorFeedNotSigned,
                       localizedString(u"It is not signed by the publisher of this application."_s),
                       tryLater(), fault.what);
    return refusal(TXUpdateErrorFeedNotGenuine,
                   localizedString(u"It is not what the publisher of this application has signed."_s),
                   tryLater(), fault.what);
}

Result<std::optional<trust::FeedClaim>> admitFeed(QByteArray &document, trust::FeedFormat servedAs,
                                                  const trust::AppInfo &host, FeedMemory memory) {
    if (!host.keys || !host.requiresSignedFeed) {
        if (const auto line = trust::findUnreadLine({document.constData(), size_t(document.size())}))
            document.remove(
                0, qsizetype(trust::putBeginningBeforeBody(document.data(), line->format, line->bodyAt)));
        return std::optional<trust::FeedClaim>();
    }
    const trust::Outcome<trust::VerifiedFeed> feed =
        trust::VerifiedFeed::verify(*host.keys, bytesOf(document), {host.bundle, host.feedName});
    if (!feed)
        return feedTrustError(feed.fault());
    if (feed->format() != servedAs)
        return feedTrustError({trust::FaultKind::Mismatch,
                               "the feed is served with another type than its signed format has: JSON must "
                               "be served as application/json, an appcast as anything else"});
    const int64_t now = trust::trustedNow(services().now().toSecsSinceEpoch(), host.buildDate);
    const trust::FreshnessVerdict verdict = memory == FeedMemory::Kept
                                                ? rememberFeed(feed->claim(), now)
                                                : trust::judgeFreshness(feed->claim(), std::nullopt, now);
    if (verdict.ignoredStored)
        TXLog(TXLogLevelFailure,
              u"TXUpdate: The newest feed that was received before is dated more than a day after now, and "
              "does not count."_s);
    if (const TXError error = errorFor(verdict.freshness, feed->claim()))
        return error;
    document.remove(0, qsizetype(feed->documentAt()));
    return std::optional(feed->claim());
}

} // namespace tx
