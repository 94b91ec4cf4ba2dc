// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QStringList>

namespace tx {

struct RemovedApplication {
    QString bundlePath; ///< without links in its folders
    QString trash;      ///< where it is now; null if there was only its menu entry
    QStringList files;  ///< the removed files of its menu entry
};

/// Moves an application of this user to the Trash and removes its menu entry, icon and MIME types. Refuses an
/// application that is running, is being updated, or belongs to a package or another user. If the application
/// is gone already, only the entry is removed, so that a call that failed can be repeated. The errors are in
/// English and say what to do. Makes
/// the application the main bundle, whose settings are changed. Thread: any, in a program that acts for an
/// application; blocks.
[[nodiscard]] Result<RemovedApplication> removeApplication(const QString &path);

} // namespace tx
