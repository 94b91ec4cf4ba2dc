// SPDX-License-Identifier: MIT
#include "profile/valuescan.h"

#include <cmath>
#include <limits>

namespace tx {

namespace {

/// A scanner over a string that skips white space before each item.
class Scanner {
public:
    explicit Scanner(QStringView text)
        : m_rest(text) {}

    std::optional<qint64> integer() {
        skipSpaces();
        QStringView rest = m_rest;
        const bool negative = rest.startsWith(u'-');
        if (negative || rest.startsWith(u'+'))
            rest = rest.mid(1);
        if (rest.isEmpty() || !isDigit(rest[0]))
            return std::nullopt;
        // Accumulates negative values: the lowest number has no positive counterpart.
        constexpr qint64 lowest = std::numeric_limits<qint64>::min();
        constexpr qint64 highest = std::numeric_limits<qint64>::max();
        qint64 value = 0;
        for (; !rest.isEmpty() && isDigit(rest[0]); rest = rest.mid(1)) {
            const int digit = rest[0].unicode() - u'0';
            value = value < (lowest + digit) / 10 ? lowest : value * 10 - digit;
        }
        m_rest = rest;
        if (negative)
            return value;
        return value == lowest ? highest : -value;
    }

    /// The rest of the line; absent when there is nothing.
    std::optional<QStringView> line() {
        skipSpaces();
        const qsizetype end = m_rest.indexOf(u'\n');
        const QStringView result = end < 0 ? m_rest : m_rest.first(end);
        return result.isEmpty() ? std::nullopt : std::optional(result);
    }

private:
    static bool isDigit(QChar c) { return c >= u'0' && c <= u'9'; }
    void skipSpaces() {
        while (!m_rest.isEmpty() && m_rest[0].isSpace())
            m_rest = m_rest.mid(1);
    }

    QStringView m_rest;
};

} // namespace

qint64 integerValue(const QVariant &value) {
    switch (value.typeId()) {
    case QMetaType::QString:
        return Scanner(value.toString()).integer().value_or(0);
    case QMetaType::Double: {
        constexpr double limit = 9.2e18;
        const double number = value.toDouble();
        return std::isnan(number) ? 0 : static_cast<qint64>(std::clamp(number, -limit, limit));
    }
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toLongLong();
    default:
        return 0;
    }
}

std::optional<quint64> scanWithUnit(const QString &text) {
    Scanner scanner(text);
    const std::optional<qint64> number = scanner.integer();
    if (!number)
        return std::nullopt;
    const std::optional<QStringView> unit = scanner.line();
    if (!unit)
        return std::nullopt;
    constexpr quint64 thousand = 1024; // for memory and speed alike
    const auto value = static_cast<quint64>(*number);
    return unit->startsWith(u'g', Qt::CaseInsensitive) ? value * thousand : value;
}

} // namespace tx
