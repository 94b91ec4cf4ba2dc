// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

#include <QJsonObject>

namespace tx::bundling {

/// Facts about a bundle for its publisher.
struct Summary {
    qint64 size = 0;
    qsizetype files = 0;
    QString machine;
    QString oldestGlibc;     ///< the oldest glibc that it runs with; null if it does not need glibc
    QString oldestLibstdcxx; ///< the oldest libstdc++, as its symbol version GLIBCXX
    QList<const SystemLibrary *> packages; ///< packages that it expects on the user's system, one line each
};

[[nodiscard]] Summary summaryOf(const Plan &plan);

/// Lists every file with its size and the files that need it, and the libraries that are left to the system,
/// with reasons.
[[nodiscard]] QString listOf(const Plan &plan);
/// The summary in a few lines.
[[nodiscard]] QString textOf(const Summary &summary);
/// The list and the summary as JSON.
[[nodiscard]] QJsonObject jsonOf(const Plan &plan);

} // namespace tx::bundling
