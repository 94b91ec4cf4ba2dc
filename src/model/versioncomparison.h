// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXVersionComparison.h>

#include <functional>

namespace tx {

/// -1 when `a` is older than `b`, 0 when they are the same, 1 when it is newer. Allocates nothing. Thread:
/// any.
[[nodiscard]] int compareVersions(QStringView a, QStringView b);

/// (version, version) -> -1, 0 or 1.
using VersionComparator = std::function<int(const QString &, const QString &)>;

/// The comparator that decides "newer"; the built-in one unless a host replaced it. Thread: any.
[[nodiscard]] VersionComparator versionComparator();
/// A null function restores the built-in one.
void setVersionComparator(VersionComparator comparator);

/// Whether the comparator in force finds `a` newer than `b`.
[[nodiscard]] bool isVersionNewer(const QString &a, const QString &b);

} // namespace tx
