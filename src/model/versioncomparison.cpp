// SPDX-License-Identifier: MIT
#include "model/versioncomparison.h"

#include <QMutex>

#include <array>
#include <atomic>
#include <limits>

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

/// Nearly all versions are ASCII, so the types of ASCII characters come from a table.
const std::array<Type, tableSize> &asciiTypes() {
    static const auto types = [] {
        std::array<Type, tableSize> result{};
        for (size_t i = 0; i < tableSize; ++i)
            result[i] = classify(static_cast<char16_t>(i));
        return result;
    }();
    return types;
}

/// Walks over the parts of a version without copying them.
class Parts {
public:
    Parts(QStringView text, const std::array<Type, tableSize> &types)
        : m_next(text.utf16())
        , m_end(text.utf16() + text.size())
        , m_types(types) {}

    /// Moves to the next part; false at the end.
    bool next() {
        if (m_next == m_end)
            return false;
        m_begin = m_next;
        m_type = typeOf(*m_next++);
        while (m_next != m_end && m_type != separator && typeOf(*m_next) == m_type)
            ++m_next;
        return true;
    }

    [[nodiscard]] Type type() const { return m_type; }
    [[nodiscard]] QStringView text() const { return {m_begin, m_next}; }

    /// The value of a number, at most 2147483647.
    [[nodiscard]] int value() const {
        constexpr qint64 limit = std::numeric_limits<int>::max();
        qint64 result = 0;
        for (const char16_t *p = m_begin; p != m_next && result < limit; ++p)
            result = result * 10 + (*p < tableSize ? *p - u'0' : QChar(*p).digitValue());
        return static_cast<int>(result < limit ? result : limit);
    }

private:
    Type typeOf(char16_t unit) const { return unit < tableSize ? m_types[unit] : classify(unit); }

    const char16_t *m_begin = nullptr;
    const char16_t *m_next;
    const char16_t *m_end;
    const std::array<Type, tableSize> &m_types;
    Type m_type = string;
};

int sign(int difference) { return (difference > 0) - (difference < 0); }

/// Compares two parts at the same position; 0 if the next parts decide.
int compareParts(const Parts &a, const Parts &b) {
    if (a.type() != b.type()) {
        if (b.type() == string)
            return 1;
        if (a.type() == string)
            return -1;
        return a.type() == number ? 1 : -1;
    }
    if (a.type() == string)
        return sign(a.text().compare(b.text()));
    if (a.type() == number) {
        const int valueA = a.value();
        const int valueB = b.value();
        return (valueA > valueB) - (valueA < valueB);
    }
    return 0;
}

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
    Parts parts(version, asciiTypes());
    while (parts.next())
        result.append(parts.text().toString());
    return result;
}

namespace tx {

int compareVersions(QStringView a, QStringView b) {
    const auto &types = asciiTypes();
    Parts partsA(a, types);
    Parts partsB(b, types);
    for (;;) {
        const bool hasA = partsA.next();
        const bool hasB = partsB.next();
        if (!hasA && !hasB)
            return 0;
        // The longer version is newer, unless its additional parts begin with a word, which means a
        // pre-release.
        if (!hasB)
            return partsA.type() == string ? -1 : 1;
        if (!hasA)
            return partsB.type() == string ? 1 : -1;
        if (const int result = compareParts(partsA, partsB))
            return result;
    }
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
