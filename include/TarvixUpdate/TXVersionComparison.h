// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QString>
#include <QStringList>

/// Registers the enumerators with Qt's meta-object system, so that logs and scripts can print their names.
/// The members are also visible in the global namespace.
inline namespace TXVersionComparisonEnumerations {
Q_NAMESPACE_EXPORT(TX_EXPORT)

/// The type of a part of a version string.
enum TXUpdateVersionCharacterType : unsigned {
    TXUpdateVersionCharacterTypeNumber = 0,    ///< a decimal digit
    TXUpdateVersionCharacterTypeString = 1,    ///< everything else: letters, symbols
    TXUpdateVersionCharacterTypeSeparator = 2, ///< ".", white space, a line break, punctuation
};
Q_ENUM_NS(TXUpdateVersionCharacterType)

} // namespace TXVersionComparisonEnumerations

/// The type of the first UTF-16 unit of a non-empty string. Thread: any.
[[nodiscard]] TX_EXPORT TXUpdateVersionCharacterType TXUpdateTypeOfVersionCharacter(QStringView text);

/// Splits a version into its parts: runs of digits, runs of other characters, and single separators. Thread:
/// any.
[[nodiscard]] TX_EXPORT QStringList TXUpdateSplitVersionString(const QString &version);
