// SPDX-License-Identifier: MIT
#include "model/conditions.h"

#include "model/feedentry.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

TXUpdateItem::~TXUpdateItem() = default;

namespace {

TXUpdateConditionLaunch launchFrom(std::string_view text) {
    if (text == "first")
        return TXUpdateConditionLaunchFirst;
    if (text == "any")
        return TXUpdateConditionLaunchAny;
    // Also the default: an ordinary item does not disturb the first launch of an application.
    return TXUpdateConditionLaunchNotFirst;
}

/// A value of a JSON document as a string; null for an absent one.
QString textFormOf(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return {};
    case QMetaType::Bool:
        return value.toBool() ? u"1"_s : u"0"_s;
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
    default:
        return value.toString();
    }
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

TXUpdateItemConditions tx::conditionsFrom(const FeedEntry &entry) {
    using Member = FeedEntry::Member;
    TXUpdateItemConditions result;
    result.minimumSystemVersion = entry.text(Member::MinSystemVersion);
    result.maximumSystemVersion = entry.text(Member::MaxSystemVersion);
    result.minimumAppBuild = entry.text(Member::MinBuild);
    result.maximumAppBuild = entry.text(Member::MaxBuild);
    result.launch = launchFrom(entry.bytes(Member::Launch));
    return result;
}

TXUpdateItemConditions TXUpdateItemConditions::conditionsFromDictionary(const QVariantMap &entry) {
    TXUpdateItemConditions result;
    result.minimumSystemVersion = textFormOf(entry.value(u"minSystemVersion"_s));
    result.maximumSystemVersion = textFormOf(entry.value(u"maxSystemVersion"_s));
    result.minimumAppBuild = textFormOf(entry.value(u"minBuild"_s));
    result.maximumAppBuild = textFormOf(entry.value(u"maxBuild"_s));
    result.launch = launchFrom(textFormOf(entry.value(u"launch"_s)).toStdString());
    return result;
}

bool TXUpdateItemConditions::isEqual(const TXUpdateItemConditions &other) const {
    const auto same = [](const QString &a, const QString &b) { return a.isNull() == b.isNull() && a == b; };
    return same(minimumSystemVersion, other.minimumSystemVersion) &&
           same(maximumSystemVersion, other.maximumSystemVersion) &&
           same(minimumAppBuild, other.minimumAppBuild) && same(maximumAppBuild, other.maximumAppBuild) &&
           launch == other.launch;
}
