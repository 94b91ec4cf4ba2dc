// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QDateTime>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <string>

namespace tx {
class FeedEntry;

/// For the framework's readers: where a feed's own texts of an item stand, in a block that the item shares
/// with its neighbours. What the item says is read from there when it is asked for: an object for each text
/// of a long feed would take many times its size. A value.
struct PackedEntry {
    std::shared_ptr<const std::string> block; ///< null: none
    quint32 position = 0;
    bool hasConditions = false;
    bool isFromSecureFeed = false;

    /// The texts; they live as long as the block.
    [[nodiscard]] FeedEntry read() const;
};
} // namespace tx

/// What an item requires of the launch of the application.
enum TXUpdateConditionLaunch : quint64 {
    TXUpdateConditionLaunchAny = 0,
    TXUpdateConditionLaunchFirst = 1,
    TXUpdateConditionLaunchNotFirst = 2,
};

/// "first", "notFirst" and "any"; every other text, a null one included, is TXUpdateConditionLaunchNotFirst.
[[nodiscard]] TX_EXPORT TXUpdateConditionLaunch TXUpdateConditionLaunchFromString(const QString &text);

/// Whether an application in the state `current` meets `required`.
[[nodiscard]] TX_EXPORT bool TXUpdateConditionLaunchSatisfied(TXUpdateConditionLaunch required,
                                                              TXUpdateConditionLaunch current);

/// Bounds on the application's build and the system's version, and the launch requirement. A bound that is
/// absent is a null string. A value; thread: any.
class TX_EXPORT TXUpdateItemConditions {
public:
    QString minimumAppBuild;
    QString maximumAppBuild;
    QString minimumSystemVersion;
    QString maximumSystemVersion;
    TXUpdateConditionLaunch launch = TXUpdateConditionLaunchAny;

    /// Reads "minBuild", "maxBuild", "minSystemVersion", "maxSystemVersion" and "launch" of a feed entry,
    /// such as QJsonObject::toVariantMap() gives it. A value that is not a text is taken in its text form, as
    /// the reader of JSON feeds does; a missing one and null are absent.
    [[nodiscard]] static TXUpdateItemConditions conditionsFromDictionary(const QVariantMap &entry);

    /// Absent bounds equal only absent ones.
    [[nodiscard]] bool isEqual(const TXUpdateItemConditions &other) const;
    friend bool operator==(const TXUpdateItemConditions &a, const TXUpdateItemConditions &b) {
        return a.isEqual(b);
    }
};

/// The running application's state, made by the host.
struct TXUpdateCurrentConditions {
    /// TXUpdateConditionLaunchFirst on the first launch, else TXUpdateConditionLaunchNotFirst.
    TXUpdateConditionLaunch launch = TXUpdateConditionLaunchAny;
};

/// What updates and posts share.
class TX_EXPORT TXUpdateItem {
public:
    virtual ~TXUpdateItem();
    /// `dateString` read as a date; invalid when it does not parse.
    [[nodiscard]] virtual QDateTime date() const = 0;
    /// As the feed gives it.
    [[nodiscard]] virtual QString dateString() const = 0;
    [[nodiscard]] virtual std::optional<TXUpdateItemConditions> conditions() const = 0;
};
