// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QString>

#include <optional>

/// The parts of a version shown to people, major.minor[.patch][suffix[number]], such as "2.1.3", "3.0b2" or
/// "4.2 rc1". A string of another form is kept as a plain lower-case string. An immutable value. Thread: any.
class TX_EXPORT TXVersionNumber {
public:
    /// How the string was read.
    enum Format : quint64 {
        Parsed = 0,     ///< major.minor[.patch][suffix[number]]
        PlainString = 1 ///< any other string
    };
    /// Kinds of suffix in order of maturity.
    enum Suffix : quint64 {
        Unknown = 0,     ///< a suffix without a known meaning
        Development = 1, ///< such as "d3"
        Alpha = 2,       ///< such as "a1"
        Beta = 3,        ///< such as "b2"
        Candidate = 4,   ///< such as "rc1"
        Final = 5        ///< no suffix
    };

    /// Never fails: a string that cannot be parsed becomes a plain string.
    static TXVersionNumber versionNumberWithString(const QString &text);
    /// Absent if the string has another form.
    static std::optional<TXVersionNumber> parseAsMajorMinorPatch(const QString &text);

    /// A Format.
    [[nodiscard]] quint64 format() const { return m_format; }
    /// The canonical string; for a plain string the input in lower case.
    [[nodiscard]] QString stringValue() const { return m_stringValue; }
    /// The first number; 0 for a plain string.
    [[nodiscard]] quint64 majorVersion() const { return m_majorVersion; }
    /// The second number; 0 for a plain string.
    [[nodiscard]] quint64 minorVersion() const { return m_minorVersion; }
    /// The third number; 0 if absent.
    [[nodiscard]] quint64 patchVersion() const { return m_patchVersion; }
    /// A Suffix; Final without one.
    [[nodiscard]] quint64 suffix() const { return m_suffix; }
    /// The canonical suffix; null if there is none.
    [[nodiscard]] QString suffixString() const { return m_suffixString; }
    /// The number after the suffix; 0 if absent.
    [[nodiscard]] quint64 suffixVersion() const { return m_suffixVersion; }

    /// -1 if this is older than `other`, 0 if equal, 1 if newer.
    [[nodiscard]] int compare(const TXVersionNumber &other) const;
    /// True if the canonical strings are equal.
    [[nodiscard]] bool isEqual(const TXVersionNumber &other) const;
    /// Equal values have equal hashes.
    [[nodiscard]] size_t hash() const;

    /// See isEqual().
    friend bool operator==(const TXVersionNumber &a, const TXVersionNumber &b) { return a.isEqual(b); }
    /// For QHash and QSet.
    friend size_t qHash(const TXVersionNumber &number, size_t seed = 0) { return number.hash() ^ seed; }

private:
    TXVersionNumber() = default;

    quint64 m_format = Parsed;
    QString m_stringValue;
    quint64 m_majorVersion = 0;
    quint64 m_minorVersion = 0;
    quint64 m_patchVersion = 0;
    quint64 m_suffix = Final;
    QString m_suffixString;
    quint64 m_suffixVersion = 0;
};
