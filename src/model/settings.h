// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXUpdateSettings.h>

namespace tx {

/// The installation's random identifier: 36 characters, upper-case, made on first use and kept for good.
/// Thread: any.
[[nodiscard]] QString anonymousUUID();

/// A limit that the host application may set by a number greater than 0 in its Info.plist; `usual` without
/// one. Thread: any.
[[nodiscard]] qint64 hostLimit(const QString &key, qint64 usual);

} // namespace tx
