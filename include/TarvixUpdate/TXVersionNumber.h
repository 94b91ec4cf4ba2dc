// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QString>

#include <optional>

/// A version for people, major.minor[.patch][suffix[number]] such as "2.1.3", "3.0b2" or "4.2 rc1", taken
/// apart. A text that does not fit is kept as a plain lower-case string. An immutable value. Thread: any.
class TX_EXPORT TXVersionNumber {
public:
    enum Format : quint64 { Parsed = 0, PlainString = 1 };
    /// Kinds of suffix in order of maturity.
    enum Suffix : quint64 { Unknown = 0, Development = 1, Alpha = 2, Beta = 3, Candidate = 4, Final = 5 };

    /// Never fails: what does not parse becomes a plain string.
    static TXVersionNumber versionNumberWithString(const QString &text);
    /// Absent when the text does not fit.
    static std::optional<TXVersionNumber> parseAsMajorMinorPatch(const QString &text);

    [[nodiscard]] quint64 format() const { return m_format; }
    /// Canonical text; for a plain string the lower-cased input.
    [[nodiscard]] QString stringValue() const { return m_stringValue; }
    [[nodiscard]] quint64 majorVersion() const { return m_majorVersion; }
    [[nodiscard]] quint64 minorVersion() const { return m_minorVersion; }
    [[nodiscard]] quint64 patchVersion() const { return m_patchVersion; }
    [[nodiscard]] quint64 suffix() const { return m_suffix; }
    /// Canonical suffix; null when there is none.
    [[nodiscard]] QString suffixString() const { return m_suffixString; }
    [[nodiscard]] quint64 suffixVersion() const { return m_suffixVersion; }

    /// -1, 0 or 1.
    [[nodiscard]] int compare(const TXVersionNumber &other) const;
    /// Same canonical text.
    [[nodiscard]] bool isEqual(const TXVersionNumber &other) const;
    [[nodiscard]] size_t hash() const;

    friend bool operator==(const TXVersionNumber &a, const TXVersionNumber &b) { return a.isEqual(b); }
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
