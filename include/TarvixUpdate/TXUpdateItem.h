// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

/// Makes Qt know the names of the enumerators, for logs and scripts. Its members belong to the global
/// namespace, too.
inline namespace TXUpdateItemEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// Which launches of the application an item is for.
enum TXUpdateConditionLaunch : quint64 {
    TXUpdateConditionLaunchAny = 0,      ///< every launch
    TXUpdateConditionLaunchFirst = 1,    ///< only the first one
    TXUpdateConditionLaunchNotFirst = 2, ///< every launch but the first one
};
Q_ENUM_NS(TXUpdateConditionLaunch)

} // namespace TXUpdateItemEnumerations

/// Reads "first", "notFirst" and "any"; every other string, also a null one, is
/// TXUpdateConditionLaunchNotFirst.
[[nodiscard]] TX_EXPORT TXUpdateConditionLaunch TXUpdateConditionLaunchFromString(const QString &text);

/// Whether an application in the state `current` meets `required`.
[[nodiscard]] TX_EXPORT bool TXUpdateConditionLaunchSatisfied(TXUpdateConditionLaunch required,
                                                              TXUpdateConditionLaunch current);

/// Bounds on the application's build and the system's version, and the launch requirement. A bound that is
/// absent is a null string. A value; thread: any. Its members are the interface, as those of a record.
class TX_EXPORT TXUpdateItemConditions {
public:
    /// The lowest build of the application, inclusive.
    QString minimumAppBuild;
    /// The highest build of the application, inclusive.
    QString maximumAppBuild;
    /// The lowest version of the system, inclusive.
    QString minimumSystemVersion;
    /// The highest version of the system, inclusive.
    QString maximumSystemVersion;
    /// For posts: the launches of the application at which the post is shown.
    TXUpdateConditionLaunch launch = TXUpdateConditionLaunchAny;

    /// Reads "minBuild", "maxBuild", "minSystemVersion", "maxSystemVersion" and "launch" of a feed entry,
    /// such as QJsonObject::toVariantMap() gives it. A value that is not a string is converted to one, as
    /// the reader of JSON feeds does; a missing value and null are absent.
    [[nodiscard]] static TXUpdateItemConditions conditionsFromDictionary(const QVariantMap &entry);

    /// An absent bound equals only an absent one.
    [[nodiscard]] bool isEqual(const TXUpdateItemConditions &other) const;
    /// See isEqual().
    friend bool operator==(const TXUpdateItemConditions &a, const TXUpdateItemConditions &b) {
        return a.isEqual(b);
    }
};

/// The running application's state, provided by the host. A record, as TXUpdateItemConditions.
struct TXUpdateCurrentConditions {
    /// TXUpdateConditionLaunchFirst on the first launch, else TXUpdateConditionLaunchNotFirst.
    TXUpdateConditionLaunch launch = TXUpdateConditionLaunchAny;
};

/// The common part of updates and posts. Thread: see TXUpdate and TXUpdatePost.
class TX_EXPORT TXUpdateItem {
public:
    virtual ~TXUpdateItem();
    /// `dateString` as a date; invalid if it cannot be parsed.
    [[nodiscard]] virtual QDateTime date() const = 0;
    /// As the feed gives it.
    [[nodiscard]] virtual QString dateString() const = 0;
    /// Which applications, systems and launches the item is for; absent: all.
    [[nodiscard]] virtual std::optional<TXUpdateItemConditions> conditions() const = 0;
};
