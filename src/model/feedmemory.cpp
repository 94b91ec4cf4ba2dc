// SPDX-License-Identifier: MIT
#include "model/feedmemory.h"

#include "base/shared.h"
#include "os/services.h"
#include "os/userdefaults.h"
#include "trust/encoding.h"

#include <TarvixUpdate/TXLog.h>
#include <TarvixUpdate/TXUpdateSettings.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

const QString troubleKey = u"TXUpdateFeedTrouble"_s;
const QString sinceKey = u"since"_s;
const QString toldKey = u"told"_s;

/// Each feed name has a setting of its own, so that a write never changes what another process stores for
/// another name.
QString serialKey(const std::string &feedName) {
    return u"TXUpdateFeedSerial-"_s + QString::fromStdString(trust::encodeValue(feedName));
}

std::optional<uint64_t> serialOf(const QVariant &value) {
    return trust::parseNumber(value.toString().toStdString());
}

std::optional<int64_t> secondsOf(const QVariant &value) {
    const QDateTime date = value.toDateTime();
    return date.isValid() ? std::optional<int64_t>(date.toSecsSinceEpoch()) : std::nullopt;
}

bool isAboutFeed(const TXError &error) {
    return error.domain() == TXUpdateErrorDomain && error.code() >= TXUpdateErrorFeedNotSigned &&
           error.code() <= TXUpdateErrorFeedExpired;
}

} // namespace

std::optional<uint64_t> storedSerial(const std::string &feedName) {
    const QVariant value = UserDefaults::standard().value(serialKey(feedName));
    if (!value.isValid())
        return std::nullopt;
    const std::optional<uint64_t> serial = serialOf(value);
    if (!serial)
        TXLog(TXLogLevelFailure, u"TXUpdate: The setting %@ is not a serial and does not count."_s,
              {serialKey(feedName)});
    return serial;
}

trust::FreshnessVerdict rememberFeed(const trust::FeedClaim &claim, int64_t now) {
    UserDefaults &defaults = UserDefaults::standard();
    const std::optional<uint64_t> known = storedSerial(claim.feed);
    trust::FreshnessVerdict verdict = trust::judgeFreshness(claim, known, now);
    if (verdict.freshness == trust::Freshness::Fresh && known != claim.serial) {
        const auto replace = [&](const QVariant &stored) -> std::optional<QVariant> {
            // Judged again, because another process may have accepted a newer feed in the meantime.
            verdict = trust::judgeFreshness(claim, serialOf(stored), now);
            if (verdict.freshness != trust::Freshness::Fresh)
                return std::nullopt;
            return QString::number(claim.serial);
        };
        (void)defaults.changeValue(serialKey(claim.feed), replace); // logs a failure
    }
    if (verdict.freshness == trust::Freshness::Fresh && defaults.value(troubleKey).isValid())
        (void)defaults.remove(troubleKey);
    return verdict;
}

TX_SHARED bool tellsOfFeedTrouble(const TXError &error) {
    if (!isAboutFeed(error))
        return false;
    UserDefaults &defaults = UserDefaults::standard();
    const QVariantMap stored = defaults.mapValue(troubleKey);
    const trust::TroubleVerdict verdict =
        trust::noteFeed({secondsOf(stored.value(sinceKey)), secondsOf(stored.value(toldKey))}, false,
                        services().now().toSecsSinceEpoch());
    QVariantMap map;
    for (const auto &[key, time] :
         {std::pair(sinceKey, verdict.stored.since), std::pair(toldKey, verdict.stored.told)}) {
        if (time)
            map.insert(key, QDateTime::fromSecsSinceEpoch(*time, Qt::UTC));
    }
    if (map != stored)
        (void)defaults.setValue(troubleKey, map);
    return verdict.tells;
}

} // namespace tx
