// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXGlobal.h>

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

/// The parts of a version shown to people, major.minor[.patch][suffix[number]], such as "2.1.3", "3.0b2" or
/// "4.2 rc1". A string of another form is kept as a plain lower-case string. An immutable value. Thread: any.
class TX_EXPORT TXVersionNumber {
    Q_GADGET
public:
    /// How the string was read.
    enum Format : quint64 {
        Parsed = 0,     ///< major.minor[.patch][suffix[number]]
        PlainString = 1 ///< any other string
    };
    Q_ENUM(Format)
    /// Kinds of suffix in order of maturity.
    enum Suffix : quint64 {
        Unknown = 0,     ///< a suffix without a known meaning
        Development = 1, ///< such as "d3"
        Alpha = 2,       ///< such as "a1"
        Beta = 3,        ///< such as "b2"
        Candidate = 4,   ///< such as "rc1"
        Final = 5        ///< no suffix
    };
    Q_ENUM(Suffix)

    /// Copies are cheap: they share their content.
    TXVersionNumber(const TXVersionNumber &);
    /// See the copy constructor.
    TXVersionNumber &operator=(const TXVersionNumber &);
    ~TXVersionNumber(); ///< Copies keep the content.

    /// Never fails: a string that cannot be parsed becomes a plain string.
    static TXVersionNumber versionNumberWithString(const QString &text);
    /// Absent if the string has another form.
    static std::optional<TXVersionNumber> parseAsMajorMinorPatch(const QString &text);

    /// A Format.
    [[nodiscard]] quint64 format() const;
    /// The canonical string; for a plain string the input in lower case.
    [[nodiscard]] QString stringValue() const;
    /// The first number; 0 for a plain string.
    [[nodiscard]] quint64 majorVersion() const;
    /// The second number; 0 for a plain string.
    [[nodiscard]] quint64 minorVersion() const;
    /// The third number; 0 if absent.
    [[nodiscard]] quint64 patchVersion() const;
    /// A Suffix; Final without one.
    [[nodiscard]] quint64 suffix() const;
    /// The canonical suffix; null if there is none.
    [[nodiscard]] QString suffixString() const;
    /// The number after the suffix; 0 if absent.
    [[nodiscard]] quint64 suffixVersion() const;

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
    struct Private;
    explicit TXVersionNumber(std::shared_ptr<const Private> content);
    std::shared_ptr<const Private> d; ///< never null
};
