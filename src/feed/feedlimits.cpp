// SPDX-License-Identifier: MIT
#include "feed/feedlimits.h"

#include "model/settings.h"

using namespace Qt::StringLiterals;

namespace tx {

qint64 largestFeed() {
    constexpr qint64 usual = qint64(16) << 20;
    return hostLimit(u"TXUpdateMaximumFeedSize"_s, usual);
}

} // namespace tx
