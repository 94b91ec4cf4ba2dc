// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QString>
#include <QStringList>

/// The type of a part of a version string.
enum TXUpdateVersionCharacterType : unsigned {
    TXUpdateVersionCharacterTypeNumber = 0,    ///< a decimal digit
    TXUpdateVersionCharacterTypeString = 1,    ///< everything else: letters, symbols
    TXUpdateVersionCharacterTypeSeparator = 2, ///< ".", white space, a line break, punctuation
};

/// The type of the first UTF-16 unit of a non-empty string. Thread: any.
[[nodiscard]] TX_EXPORT TXUpdateVersionCharacterType TXUpdateTypeOfVersionCharacter(QStringView text);

/// The parts of a version: runs of digits, runs of other characters, and each separator by itself. Thread:
/// any.
[[nodiscard]] TX_EXPORT QStringList TXUpdateSplitVersionString(const QString &version);
