// SPDX-License-Identifier: MIT
#pragma once

#include "bundle/bundlefiles.h"
#include "bundle/bundleplan.h"
#include "bundle/licences.h"

#include <functional>

namespace tx::bundling {

struct WrittenBundle {
    QString path;
    QString debugSymbols; ///< folder with NAME.debug for each stripped file; null if none was stripped
    QStringList problems; ///< if not empty, the bundle was not moved into place; the earlier one stays
    QStringList warnings;
};

/// Makes the bundle in a temporary folder next to its destination, checks it, and moves it into place if the
/// checks find no problem. Replaces an existing bundle. After an error nothing has changed, and the temporary
/// folder is removed. `onProgress` is called on the same thread after each file, with the size of the files
/// so far and of all files.
[[nodiscard]] Result<WrittenBundle>
writeBundle(const Plan &plan, const Wishes &wishes, const QVariantMap &info, BundleFiles &files,
            const std::function<void(qint64 done, qint64 total)> &onProgress = {});

} // namespace tx::bundling
