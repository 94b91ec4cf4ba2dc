// SPDX-License-Identifier: MIT
#pragma once

#include "publish/progress.h"
#include "trust/fault.h"

#include <QString>
#include <QUrl>

namespace tx::publishing {

/// The identifier of the application in a published archive, which is fetched to `scratch`. `most`: bytes of
/// the archive. Faults: File; Input, when it has no application at its top. Runs an event loop.
trust::Outcome<QString> identifierInArchive(const QUrl &url, const QString &scratch, qint64 most,
                                            Progress &progress);

} // namespace tx::publishing
