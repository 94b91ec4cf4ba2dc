// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QString>

/// Reports events of objects that a host does not hold, such as the window that shows posts while the
/// application quits.
///
///     QObject::connect(TXNotificationCenter::defaultCenter(), &TXNotificationCenter::posted, this,
///                      [](const QString &name) {
///                          if (name == TXUpdatePostWindowDidCloseNotificationName)
///                              ...
///                      });
///
/// Thread: main. Ownership: the library owns it; it exists until the process ends.
class TX_EXPORT TXNotificationCenter final : public QObject {
    Q_OBJECT
public:
    /// The only one; created on first use.
    static TXNotificationCenter *defaultCenter();

Q_SIGNALS:
    /// `name`: the value of one of the framework's constants.
    void posted(const QString &name);

private:
    TXNotificationCenter() = default;
};
