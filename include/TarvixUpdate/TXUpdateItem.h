// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
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

/// The range of the application's builds, the range of system versions and the launch requirement for which
/// an item is meant. A null string means "no bound". Members may be read and written directly. Thread: a
/// value, usable on any thread.
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

/// The running application's state, which the host provides. Members may be read and written directly.
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
