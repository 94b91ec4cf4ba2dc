// SPDX-License-Identifier: MIT
#include "core/relevance.h"

#include "core/versioncomparison.h"
#include "platform/services.h"
#include "platform/userdefaults.h"

#include <TarvixUpdate/TXUpdateSettings.h>

using namespace Qt::StringLiterals;

namespace tx {

namespace {

constexpr qint64 ignoreSeconds = 2592000; // 30 days

} // namespace

QString reasonAgainst(const std::optional<TXUpdateItemConditions> &conditions,
                      const std::optional<QString> &version, const QString &build,
                      const QString &systemVersion) {
    if (conditions) {
        // The built-in comparison even where a host replaced the one that decides "newer".
        const TXUpdateItemConditions &c = *conditions;
        if (!c.minimumAppBuild.isNull() && compareVersions(build, c.minimumAppBuild) < 0)
            return u"minBuild %1 is newer than build %2"_s.arg(c.minimumAppBuild, build);
        if (!c.maximumAppBuild.isNull() && compareVersions(build, c.maximumAppBuild) > 0)
            return u"maxBuild %1 is older than build %2"_s.arg(c.maximumAppBuild, build);
        if (!c.minimumSystemVersion.isNull() && compareVersions(systemVersion, c.minimumSystemVersion) < 0)
            return u"minSystemVersion %1 is newer than system %2"_s.arg(c.minimumSystemVersion,
                                                                        systemVersion);
        if (!c.maximumSystemVersion.isNull() && compareVersions(systemVersion, c.maximumSystemVersion) > 0)
            return u"maxSystemVersion %1 is older than system %2"_s.arg(c.maximumSystemVersion,
                                                                        systemVersion);
    }
    if (version && !isVersionNewer(*version, build))
        return u"build %1 is not newer than build %2"_s.arg(*version, build);
    return {};
}

bool isItemRelevant(const TXUpdateItem &item, const QString &build, const QString &systemVersion) {
    const auto *update = dynamic_cast<const TXUpdate *>(&item);
    const std::optional<QString> version = update ? std::optional(update->version()) : std::nullopt;
    return reasonAgainst(item.conditions(), version, build, systemVersion).isNull();
}

IgnoredVersions::IgnoredVersions() {
    const QVariant stored = UserDefaults::standard().value(TXUpdatePrefIgnoreVersionKey);
    // An earlier form of the record was a plain text: it ignores nothing and stays.
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
