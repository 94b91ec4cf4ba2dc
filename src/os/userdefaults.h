// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QDateTime>
#include <QMutex>
#include <QVariant>

#include <functional>
#include <optional>

namespace tx {

/// An application's settings: typed values under keys, in one property-list file that a person can read.
///
/// Each write reads the file anew under a lock between processes, changes one key and replaces the whole file
/// in one step, so that writers neither tear nor lose each other's values. A file that cannot be read is set
/// aside as "<name>.broken-<n>" with a warning before anything is written.
///
/// Thread: any. Values: bool, double, QString, QDateTime (whole seconds), QVariantList, QVariantMap.
/// An absent key, or one of another type, reads as false, 0 or null.
class UserDefaults {
public:
    /// The settings in the file at `path`.
    explicit UserDefaults(const QString &path);

    /// The settings of the main bundle: `<configuration folder>/<bundle identifier>.plist`.
    static UserDefaults &standard();

    [[nodiscard]] QString filePath() const { return m_path; }
    [[nodiscard]] QVariant value(const QString &key) const;
    [[nodiscard]] bool boolValue(const QString &key) const;
    [[nodiscard]] double doubleValue(const QString &key) const;
    [[nodiscard]] QString stringValue(const QString &key) const;
    [[nodiscard]] QDateTime dateValue(const QString &key) const;
    [[nodiscard]] QVariantMap mapValue(const QString &key) const;

    /// Stores a value; an invalid one removes the key. A failure is logged and returned.
    TXError setValue(const QString &key, const QVariant &value);
    TXError remove(const QString &key) { return setValue(key, {}); }
    /// Stores `value` unless the key already has a string. Returns the string that is stored afterwards.
    QString textOrSet(const QString &key, const QString &value);
    /// Makes a value of the stored one, which is invalid when there is none; none leaves it as it is.
    using Change = std::function<std::optional<QVariant>(const QVariant &stored)>;
    /// Stores what `change` makes of the value. Nobody else writes in between, no other process either. A
    /// failure is logged and returned; `change` is not called if the settings cannot be locked. It must not
    /// use these settings.
    TXError changeValue(const QString &key, const Change &change);

private:
    struct Stamp {
        qint64 size = -1;
        qint64 modified = 0;
        quint64 inode = 0;
        bool operator==(const Stamp &) const = default;
    };
    static Stamp stampOf(const QString &path);
    void refresh() const;
    TXError store(const QString &key, const Change &change);
    TXError storeOrLog(const QString &key, const Change &change);

    const QString m_path;
    mutable QMutex m_mutex;
    mutable Stamp m_stamp;
    mutable QVariantMap m_values;
    mutable bool m_readable = true;
};

} // namespace tx
