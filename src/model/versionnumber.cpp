// SPDX-License-Identifier: MIT
#include <TarvixUpdate/TXVersionNumber.h>

#include <QHash>

#include <algorithm>
#include <compare>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

/// Reads items from a string, skipping white space before each.
class Scanner {
public:
    explicit Scanner(const QString &text)
        : m_text(text) {}

    bool scanInteger(quint64 &value) {
        skipBlanks();
        qsizetype position = m_position;
        bool negative = false;
        if (position < m_text.size() && (m_text[position] == u'-' || m_text[position] == u'+'))
            negative = m_text[position++] == u'-';
        const qsizetype digits = position;
        constexpr qint64 limit = std::numeric_limits<qint64>::max();
        qint64 result = 0;
        for (; position < m_text.size() && m_text[position].digitValue() >= 0 && isDigit(m_text[position]);
             ++position) {
            const int digit = m_text[position].digitValue();
            result = result > (limit - digit) / 10 ? limit : result * 10 + digit;
        }
        if (position == digits)
            return false;
        m_position = position;
        value = static_cast<quint64>(negative ? -result : result);
        return true;
    }

    bool scanDot() {
        const qsizetype before = m_position;
        skipBlanks();
        if (m_position < m_text.size() && m_text[m_position] == u'.') {
            ++m_position;
            return true;
        }
        m_position = before;
        return false;
    }

    /// Everything before the next digit; empty if a digit or the end follows.
    QString scanUpToDigit() {
        skipBlanks();
        const qsizetype start = m_position;
        while (m_position < m_text.size() && !isDigit(m_text[m_position]))
            ++m_position;
        return m_text.mid(start, m_position - start);
    }

    bool isAtEnd() {
        skipBlanks();
        return m_position >= m_text.size();
    }

private:
    static bool isDigit(QChar c) { return c.category() == QChar::Number_DecimalDigit; }
    void skipBlanks() {
        while (m_position < m_text.size() && m_text[m_position].isSpace())
            ++m_position;
    }

    const QString m_text;
    qsizetype m_position = 0;
};

struct KnownSuffix {
    QLatin1StringView text;
    TXVersionNumber::Suffix kind;
    QLatin1StringView canonical;
};

constexpr KnownSuffix knownSuffixes[] = {
    {"d"_L1, TXVersionNumber::Development, "d"_L1}, {"dev"_L1, TXVersionNumber::Development, "d"_L1},
    {"a"_L1, TXVersionNumber::Alpha, "a"_L1},       {"alpha"_L1, TXVersionNumber::Alpha, "a"_L1},
    {"b"_L1, TXVersionNumber::Beta, "b"_L1},        {"beta"_L1, TXVersionNumber::Beta, "b"_L1},
    {"fc"_L1, TXVersionNumber::Candidate, "fc"_L1}, {"rc"_L1, TXVersionNumber::Candidate, "fc"_L1},
};

int compareNumbers(quint64 a, quint64 b) { return (a > b) - (a < b); }

/// Compares by Unicode code points. UTF-16 order differs beyond the Basic Multilingual Plane.
int compareTexts(const QString &a, const QString &b) {
    const auto pointsA = a.toUcs4();
    const auto pointsB = b.toUcs4();
    const auto order = std::lexicographical_compare_three_way(pointsA.begin(), pointsA.end(), pointsB.begin(),
                                                              pointsB.end());
    return std::is_lt(order) ? -1 : (std::is_gt(order) ? 1 : 0);
}

QString asUnsigned32(quint64 number) { return QString::number(static_cast<quint32>(number)); }

} // namespace

TXVersionNumber TXVersionNumber::versionNumberWithString(const QString &text) {
    if (const std::optional<TXVersionNumber> parsed = parseAsMajorMinorPatch(text))
        return *parsed;
    TXVersionNumber result;
    result.m_format = PlainString;
    result.m_stringValue = text.toLower();
    return result;
}

std::optional<TXVersionNumber> TXVersionNumber::parseAsMajorMinorPatch(const QString &text) {
    Scanner scanner(text.toLower());
    TXVersionNumber result;
    if (!scanner.scanInteger(result.m_majorVersion))
        return std::nullopt;
    if (scanner.scanDot()) {
        if (!scanner.scanInteger(result.m_minorVersion))
            return std::nullopt;
        if (scanner.scanDot() && !scanner.scanInteger(result.m_patchVersion))
            return std::nullopt;
    }
    if (const QString scanned = scanner.scanUpToDigit(); !scanned.isEmpty()) {
        const QString suffix = scanned.trimmed();
        result.m_suffix = Unknown;
        result.m_suffixString = suffix;
        for (const KnownSuffix &known : knownSuffixes) {
            if (suffix == known.text) {
                result.m_suffix = known.kind;
                result.m_suffixString = known.canonical;
            }
        }
        if (!scanner.scanInteger(result.m_suffixVersion))
            result.m_suffixVersion = 0;
    }
    if (!scanner.isAtEnd())
        return std::nullopt;
    result.m_stringValue = asUnsigned32(result.m_majorVersion) + u'.' + asUnsigned32(result.m_minorVersion);
    if (result.m_patchVersion != 0)
        result.m_stringValue += u'.' + asUnsigned32(result.m_patchVersion);
    result.m_stringValue += result.m_suffixString;
    // The patch number decides here, not the suffix version: these strings are compared and stored elsewhere.
    if (result.m_patchVersion != 0)
        result.m_stringValue += asUnsigned32(result.m_suffixVersion);
    return result;
}

int TXVersionNumber::compare(const TXVersionNumber &other) const {
    if (m_format != other.m_format)
        return m_format < other.m_format ? -1 : 1;
    if (m_format == PlainString)
        return compareTexts(m_stringValue, other.m_stringValue);
    if (m_format != Parsed)
        return 0;
    for (const auto &[a, b] :
         {std::pair(m_majorVersion, other.m_majorVersion), std::pair(m_minorVersion, other.m_minorVersion),
          std::pair(m_patchVersion, other.m_patchVersion), std::pair(m_suffix, other.m_suffix)}) {
        if (const int result = compareNumbers(a, b))
            return result;
    }
    if (m_suffix == Unknown) {
        if (const int result = compareTexts(m_suffixString, other.m_suffixString))
            return result;
    }
    if (const int result = compareNumbers(m_suffixVersion, other.m_suffixVersion))
        return result;
    return compareTexts(m_stringValue, other.m_stringValue);
}

bool TXVersionNumber::isEqual(const TXVersionNumber &other) const {
    return m_stringValue == other.m_stringValue;
}

size_t TXVersionNumber::hash() const {
    if (m_format == PlainString)
        return qHash(m_stringValue);
    if (m_format != Parsed)
        return 0;
    constexpr quint64 mask = 0x5555;
    // If size_t has 32 bits, the lower half is as good.
    return static_cast<size_t>(m_majorVersion ^ m_minorVersion ^ m_patchVersion ^ m_suffix ^ m_suffixVersion ^
                               (m_suffixString.isNull() ? 0 : qHash(m_suffixString)) ^ mask);
}
