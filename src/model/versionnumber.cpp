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

struct TXVersionNumber::Private {
    quint64 format = Parsed;
    QString stringValue;
    quint64 majorVersion = 0;
    quint64 minorVersion = 0;
    quint64 patchVersion = 0;
    quint64 suffix = Final;
    QString suffixString;
    quint64 suffixVersion = 0;
};

TXVersionNumber::TXVersionNumber(std::shared_ptr<const Private> content)
    : d(std::move(content)) {}
TXVersionNumber::TXVersionNumber(const TXVersionNumber &) = default;
TXVersionNumber &TXVersionNumber::operator=(const TXVersionNumber &) = default;
TXVersionNumber::~TXVersionNumber() = default;

quint64 TXVersionNumber::format() const { return d->format; }
QString TXVersionNumber::stringValue() const { return d->stringValue; }
quint64 TXVersionNumber::majorVersion() const { return d->majorVersion; }
quint64 TXVersionNumber::minorVersion() const { return d->minorVersion; }
quint64 TXVersionNumber::patchVersion() const { return d->patchVersion; }
quint64 TXVersionNumber::suffix() const { return d->suffix; }
QString TXVersionNumber::suffixString() const { return d->suffixString; }
quint64 TXVersionNumber::suffixVersion() const { return d->suffixVersion; }

TXVersionNumber TXVersionNumber::versionNumberWithString(const QString &text) {
    if (const std::optional<TXVersionNumber> parsed = parseAsMajorMinorPatch(text))
        return *parsed;
    auto plain = std::make_shared<Private>();
    plain->format = PlainString;
    plain->stringValue = text.toLower();
    return TXVersionNumber(std::move(plain));
}

std::optional<TXVersionNumber> TXVersionNumber::parseAsMajorMinorPatch(const QString &text) {
    Scanner scanner(text.toLower());
    auto content = std::make_shared<Private>();
    Private &result = *content;
    if (!scanner.scanInteger(result.majorVersion))
        return std::nullopt;
    if (scanner.scanDot()) {
        if (!scanner.scanInteger(result.minorVersion))
            return std::nullopt;
        if (scanner.scanDot() && !scanner.scanInteger(result.patchVersion))
            return std::nullopt;
    }
    if (const QString scanned = scanner.scanUpToDigit(); !scanned.isEmpty()) {
        const QString suffix = scanned.trimmed();
        result.suffix = Unknown;
        result.suffixString = suffix;
        for (const KnownSuffix &known : knownSuffixes) {
            if (suffix == known.text) {
                result.suffix = known.kind;
                result.suffixString = known.canonical;
            }
        }
        if (!scanner.scanInteger(result.suffixVersion))
            result.suffixVersion = 0;
    }
    if (!scanner.isAtEnd())
        return std::nullopt;
    result.stringValue = asUnsigned32(result.majorVersion) + u'.' + asUnsigned32(result.minorVersion);
    if (result.patchVersion != 0)
        result.stringValue += u'.' + asUnsigned32(result.patchVersion);
    result.stringValue += result.suffixString;
    // The patch number decides here, not the suffix version: these strings are compared and stored elsewhere.
    if (result.patchVersion != 0)
        result.stringValue += asUnsigned32(result.suffixVersion);
    return TXVersionNumber(std::move(content));
}

int TXVersionNumber::compare(const TXVersionNumber &other) const {
    if (d->format != other.d->format)
        return d->format < other.d->format ? -1 : 1;
    if (d->format == PlainString)
        return compareTexts(d->stringValue, other.d->stringValue);
    if (d->format != Parsed)
        return 0;
    for (const auto &[a, b] :
         {std::pair(d->majorVersion, other.d->majorVersion),
          std::pair(d->minorVersion, other.d->minorVersion),
          std::pair(d->patchVersion, other.d->patchVersion), std::pair(d->suffix, other.d->suffix)}) {
        if (const int result = compareNumbers(a, b))
            return result;
    }
    if (d->suffix == Unknown) {
        if (const int result = compareTexts(d->suffixString, other.d->suffixString))
            return result;
    }
    if (const int result = compareNumbers(d->suffixVersion, other.d->suffixVersion))
        return result;
    return compareTexts(d->stringValue, other.d->stringValue);
}

bool TXVersionNumber::isEqual(const TXVersionNumber &other) const {
    return d->stringValue == other.d->stringValue;
}

size_t TXVersionNumber::hash() const {
    if (d->format == PlainString)
        return qHash(d->stringValue);
    if (d->format != Parsed)
        return 0;
    constexpr quint64 mask = 0x5555;
    // If size_t has 32 bits, the lower half is as good.
    return static_cast<size_t>(d->majorVersion ^ d->minorVersion ^ d->patchVersion ^ d->suffix ^
                               d->suffixVersion ^ (d->suffixString.isNull() ? 0 : qHash(d->suffixString)) ^
                               mask);
}
