// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <optional>

namespace tx {

/// One screen of the desktop. Size in points, which are not multiplied by the scale.
struct ScreenInfo {
    QSizeF size;
    double scale = 1.0;
};

/// "Version 12.0.0 (Build 6.1.0-18-amd64)"; without the build where the system names none. Thread: any.
[[nodiscard]] QString operatingSystemVersionString();

/// Facts about the processor by their names: "hw.cpu64bit_capable" and "hw.optional.x86_64" as 1 or 0, and
/// "machdep.cpu.brand_string". Absent for a name that the system does not know. Thread: any.
[[nodiscard]] std::optional<int> systemControlNumber(const QString &name);
[[nodiscard]] std::optional<QString> systemControlText(const QString &name);

/// Returns the processor's brand strings from /proc/cpuinfo; absent if there are none.
[[nodiscard]] std::optional<QString> brandFromCpuInfo(const QByteArray &cpuInfo);

} // namespace tx
