// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>

namespace tx {

/// Returns true if a string in a binary property list contains a NUL character, because the library that
/// parses such lists aborts the process in that case. False for data of any other format. Thread: any.
[[nodiscard]] bool holdsNulCharacter(QByteArrayView binaryPropertyList);

} // namespace tx
