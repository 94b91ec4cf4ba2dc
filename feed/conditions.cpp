// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXUpdateItem.h>

#include "feed/feedentry.h"

using namespace Qt::StringLiterals;

TXUpdateItem::~TXUpdateItem() = default;

namespace {

TXUpdateConditionLaunch launchFrom(std::string_view text) {
    if (text == "first")
        return TXUpdateConditionLaunchFirst;
    if (text == "any")
        return TXUpdateConditionLaunchAny;
    // Also when nothing is said: an ordinary item is not for somebody's first minute with the application.
    return TXUpdateConditionLaunchNotFirst;
}

} // namespace

TXUpdateConditionLaunch TXUpdateConditionLaunchFromString(const QString &text) {
    return launchFrom(text.toStdString());
}

bool TXUpdateConditionLaunchSatisfied(TXUpdateConditionLaunch required, TXUpdateConditionLaunch current) {
    const bool restricts =
        required == TXUpdateConditionLaunchFirst || required == TXUpdateConditionLaunchNotFirst;
    return !restricts || current == required;
}

TXUpdateItemConditions TXUpdateItemConditions::conditionsFromDictionary(const tx::FeedEntry &entry) {
    using Member = tx::FeedEntry::Member;
    TXUpdateItemConditions result;
    result.minimumSystemVersion = entry.text(Member::MinSystemVersion);
    result.maximumSystemVersion = entry.text(Member::MaxSystemVersion);
    result.minimumAppBuild = entry.text(Member::MinBuild);
    result.maximumAppBuild = entry.text(Member::MaxBuild);
    result.launch = launchFrom(entry.bytes(Member::Launch));
    return result;
}

bool TXUpdateItemConditions::isEqual(const TXUpdateItemConditions &other) const {
    const auto same = [](const QString &a, const QString &b) { return a.isNull() == b.isNull() && a == b; };
    return same(minimumSystemVersion, other.minimumSystemVersion) &&
           same(maximumSystemVersion, other.maximumSystemVersion) &&
           same(minimumAppBuild, other.minimumAppBuild) && same(maximumAppBuild, other.maximumAppBuild) &&
           launch == other.launch;
}
