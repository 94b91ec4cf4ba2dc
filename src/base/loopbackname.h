// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace tx {

/// Returns true for a host name that always means this machine: "localhost", names below it, and loopback
/// addresses. IPv6 addresses have no brackets. Thread: any.
[[nodiscard]] inline bool isLoopbackName(const QString &host) {
    using namespace Qt::StringLiterals;
    const QString name = host.endsWith(u'.') ? host.chopped(1) : host;
    if (name.compare("localhost"_L1, Qt::CaseInsensitive) == 0 ||
        name.endsWith(".localhost"_L1, Qt::CaseInsensitive) || host == "::1"_L1)
        return true;
    const QStringList parts = host.split(u'.');
    if (parts.size() != 4 || parts.first() != "127"_L1)
        return false;
    for (const QString &part : parts) {
        constexpr qsizetype mostDigits = 3;
        constexpr int largest = 255;
        int value = 0;
        for (const QChar digit : part) {
            if (digit < u'0' || digit > u'9')
                return false;
            value = value * 10 + (digit.unicode() - u'0');
        }
        if (part.isEmpty() || part.size() > mostDigits || value > largest)
            return false;
    }
    return true;
}

} // namespace tx
