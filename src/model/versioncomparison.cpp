// SPDX-License-Identifier: MIT
#include "model/versioncomparison.h"

#include "posix/versionorder.h"

#include <QMutex>

#include <array>
#include <atomic>
#include <string_view>

namespace {

using Type = TXUpdateVersionCharacterType;
constexpr Type number = TXUpdateVersionCharacterTypeNumber;
constexpr Type string = TXUpdateVersionCharacterTypeString;
constexpr Type separator = TXUpdateVersionCharacterTypeSeparator;

Type classify(char16_t unit) {
    const QChar c(unit);
    switch (c.category()) {
    case QChar::Number_DecimalDigit:
        return number;
    case QChar::Punctuation_Connector:
    case QChar::Punctuation_Dash:
    case QChar::Punctuation_Open:
    case QChar::Punctuation_Close:
    case QChar::Punctuation_InitialQuote:
    case QChar::Punctuation_FinalQuote:
    case QChar::Punctuation_Other:
        return separator;
    default:
        return c.isSpace() ? separator : string;
    }
}

constexpr size_t tableSize = 128;

/// Classifies the characters of a version. Uses a table for ASCII, because nearly all versions are ASCII.
struct UnicodeClasses {
    using Kind = tx::versions::Kind;

    [[nodiscard]] static Kind kind(char16_t unit) {
        return unit < tableSize ? table[unit] : kindOf(classify(unit));
    }
    [[nodiscard]] static int digit(char16_t unit) {
        return unit < tableSize ? unit - u'0' : QChar(unit).digitValue();
    }

private:
    static Kind kindOf(Type type) {
        return type == number ? Kind::Number : type == string ? Kind::String : Kind::Separator;
    }
    static constexpr std::array<Kind, tableSize> table = [] {
        std::array<Kind, tableSize> result{};
        for (size_t i = 0; i < tableSize; ++i)
            result[i] = tx::versions::kindOfAscii(static_cast<unsigned char>(i));
        return result;
    }();
};

std::u16string_view unitsOf(QStringView text) { return {text.utf16(), static_cast<size_t>(text.size())}; }

QMutex comparatorMutex;
std::atomic<bool> hasOwnComparator{false};

tx::VersionComparator &comparatorSlot() {
    static auto &comparator = *new tx::VersionComparator; // a thread may outlast static objects
    return comparator;
}

} // namespace

TXUpdateVersionCharacterType TXUpdateTypeOfVersionCharacter(QStringView text) {
    return text.isEmpty() ? string : classify(text.front().unicode());
}

QStringList TXUpdateSplitVersionString(const QString &version) {
    QStringList result;
    const UnicodeClasses classes;
    tx::versions::Parts parts(unitsOf(version), classes);
    while (parts.next())
        result.append(QStringView(parts.text()).toString());
    return result;
}

namespace tx {

int compareVersions(QStringView a, QStringView b) {
    return versions::compare(unitsOf(a), unitsOf(b), UnicodeClasses());
}

VersionComparator versionComparator() {
    const QMutexLocker locker(&comparatorMutex);
    if (comparatorSlot())
        return comparatorSlot();
    return [](const QString &a, const QString &b) { return compareVersions(a, b); };
}

void setVersionComparator(VersionComparator comparator) {
    const QMutexLocker locker(&comparatorMutex);
    hasOwnComparator = static_cast<bool>(comparator);
    comparatorSlot() = std::move(comparator);
}

bool isVersionNewer(const QString &a, const QString &b) {
    if (!hasOwnComparator.load(std::memory_order_relaxed))
        return compareVersions(a, b) == 1;
    return versionComparator()(a, b) == 1;
}

} // namespace tx
