// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundlefiles.h"
#include "bundle/bundleplan.h"
#include "bundle/licences.h"

namespace tx::bundling {

struct WrittenBundle {
    QString path;
    QString debugSymbols; ///< folder with NAME.debug for each stripped file; null when there were none
    QStringList problems; ///< for which it was not put into its place; what was there before stays
    QStringList warnings;
};

/// Makes the bundle in a folder beside its place, checks it, and gives it its place when nothing is wrong. A
/// bundle that was there is replaced. Errors: nothing has changed then, and the unfinished folder is removed.
[[nodiscard]] Result<WrittenBundle> writeBundle(const Plan &plan, const Wishes &wishes,
                                                const QVariantMap &info, BundleFiles &files);

} // namespace tx::bundling
