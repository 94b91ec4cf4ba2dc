// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundleplan.h"

#include <QJsonObject>

namespace tx::bundling {

/// What a publisher wants to know of a bundle.
struct Summary {
    qint64 size = 0;
    qsizetype files = 0;
    QString machine;
    QString oldestGlibc;                   ///< on which it can run; null when it needs none
    QString oldestLibstdcxx;               ///< by the symbols of GLIBCXX
    QList<const SystemLibrary *> packages; ///< that it expects, one line for each
};

[[nodiscard]] Summary summaryOf(const Plan &plan);

/// Every file with its size and who asked for it, and what is left to the system and why.
[[nodiscard]] QString listOf(const Plan &plan);
/// The summary in a few lines.
[[nodiscard]] QString textOf(const Summary &summary);
/// All of it for programs.
[[nodiscard]] QJsonObject jsonOf(const Plan &plan);

} // namespace tx::bundling
