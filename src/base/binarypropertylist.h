// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>

namespace tx {

/// True when a text of a binary property list holds a NUL character: the library that reads them ends the
/// process over one. False for anything that is no binary property list. Thread: any.
[[nodiscard]] bool holdsNulCharacter(QByteArrayView binaryPropertyList);

} // namespace tx
