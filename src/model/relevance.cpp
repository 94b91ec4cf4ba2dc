// SPDX-License-Identifier: MIT
#include "model/relevance.h"

#include "model/versioncomparison.h"
#include "os/services.h"
#include "os/userdefaults.h"

#include <TarvixUpdate/TXUpdateSettings.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr qint64 ignoreSeconds = 2592000; // 30 days

} // namespace

Objection objectionTo(const TXUpdateItemConditions &c, const QString &build, const QString &systemVersion) {
    // Always the built-in comparison, even if the host replaced the one that decides "newer".
    if (!c.minimumAppBuild.isNull() && compareVersions(build, c.minimumAppBuild) < 0)
        return Objection::MinimumBuild;
    if (!c.maximumAppBuild.isNull() && compareVersions(build, c.maximumAppBuild) > 0)
        return Objection::MaximumBuild;
    if (!c.minimumSystemVersion.isNull() && compareVersions(systemVersion, c.minimumSystemVersion) < 0)
        return Objection::MinimumSystem;
    if (!c.maximumSystemVersion.isNull() && compareVersions(systemVersion, c.maximumSystemVersion) > 0)
        return Objection::MaximumSystem;
    return Objection::None;
}

QString describe(Objection objection, const TXUpdateItemConditions &c, const QString &version,
                 const QString &build, const QString &systemVersion) {
    switch (objection) {
    case Objection::MinimumBuild:
        return u"minBuild %1 is newer than build %2"_s.arg(c.minimumAppBuild, build);
    case Objection::MaximumBuild:
        return u"maxBuild %1 is older than build %2"_s.arg(c.maximumAppBuild, build);
    case Objection::MinimumSystem:
        return u"minSystemVersion %1 is newer than system %2"_s.arg(c.minimumSystemVersion, systemVersion);
    case Objection::MaximumSystem:
        return u"maxSystemVersion %1 is older than system %2"_s.arg(c.maximumSystemVersion, systemVersion);
    case Objection::NotNewer:
        return u"build %1 is not newer than build %2"_s.arg(version, build);
    case Objection::None:
        break;
    }
    return {};
}

bool isItemRelevant(const TXUpdateItem &item, const QString &build, const QString &systemVersion) {
    const std::optional<TXUpdateItemConditions> conditions = item.conditions();
    if (conditions && objectionTo(*conditions, build, systemVersion) != Objection::None)
        return false;
    const auto *update = dynamic_cast<const TXUpdate *>(&item);
    return !update || isVersionNewer(update->version(), build);
}

IgnoredVersions::IgnoredVersions() {
    const QVariant stored = UserDefaults::standard().value(TXUpdatePrefIgnoreVersionKey);
    // An earlier form of the record was a plain string. It ignores nothing and is kept.
    if (stored.typeId() != QMetaType::QVariantMap)
        return;
    const QVariantMap record = stored.toMap();
    const QVariant version = record.value(u"version"_s);
    const QDateTime date = record.value(u"date"_s).toDateTime();
    if (version.typeId() != QMetaType::QString || !date.isValid())
        return;
    m_version = version.toString();
    m_expiry = date.addSecs(ignoreSeconds);
}

bool IgnoredVersions::contains(const TXUpdate &update) {
    if (m_version.isNull())
        return false;
    if (m_version != update.version() && !isVersionNewer(m_version, update.version()))
        return false;
    if (services().now() <= m_expiry)
        return true;
    (void)UserDefaults::standard().remove(TXUpdatePrefIgnoreVersionKey);
    m_version = QString();
    return false;
}

bool isUpdateIgnored(const TXUpdate &update) { return IgnoredVersions().contains(update); }

} // namespace tx
