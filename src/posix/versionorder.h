// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

/// Compares versions without Qt. The host and the program that installs as root must get the same result.
/// Thread: any.
namespace tx::versions {

enum class Kind : unsigned char { Number, String, Separator };

/// Classifies an ASCII character: digits are numbers, punctuation and white space are separators.
[[nodiscard]] constexpr Kind kindOfAscii(unsigned char c) {
    if (c >= '0' && c <= '9')
        return Kind::Number;
    constexpr std::string_view separators = "\t\n\v\f\r !\"#%&'()*,-./:;?@[\\]_{}";
    return separators.find(static_cast<char>(c)) != std::string_view::npos ? Kind::Separator : Kind::String;
}

/// Iterates over the parts of a version without copying them. `Classes` provides `Kind kind(Unit) const`, and
/// `int digit(Unit) const` for the numeric value of a digit.
template <typename Unit, typename Classes>
class Parts {
public:
    Parts(std::basic_string_view<Unit> text, const Classes &classes)
        : m_next(text.data())
        , m_end(text.data() + text.size())
        , m_classes(classes) {}

    /// Moves to the next part; false at the end.
    bool next() {
        if (m_next == m_end)
            return false;
        m_begin = m_next;
        m_kind = m_classes.kind(*m_next++);
        while (m_next != m_end && m_kind != Kind::Separator && m_classes.kind(*m_next) == m_kind)
            ++m_next;
        return true;
    }

    [[nodiscard]] Kind kind() const { return m_kind; }
    [[nodiscard]] std::basic_string_view<Unit> text() const {
        return {m_begin, static_cast<size_t>(m_next - m_begin)};
    }

    /// The value of a number, at most 2147483647.
    [[nodiscard]] int value() const {
        constexpr int64_t limit = std::numeric_limits<int>::max();
        int64_t result = 0;
        for (const Unit *p = m_begin; p != m_next && result < limit; ++p)
            result = result * 10 + m_classes.digit(*p);
        return static_cast<int>(result < limit ? result : limit);
    }

private:
    const Unit *m_begin = nullptr;
    const Unit *m_next;
    const Unit *m_end;
    const Classes &m_classes;
    Kind m_kind = Kind::String;
};

/// Compares two parts at the same position; 0 if the next parts decide.
template <typename Unit, typename Classes>
int compareParts(const Parts<Unit, Classes> &a, const Parts<Unit, Classes> &b) {
    if (a.kind() != b.kind()) {
        if (b.kind() == Kind::String)
            return 1;
        if (a.kind() == Kind::String)
            return -1;
        return a.kind() == Kind::Number ? 1 : -1;
    }
    if (a.kind() == Kind::String) {
        const int order = a.text().compare(b.text());
        return (order > 0) - (order < 0);
    }
    if (a.kind() == Kind::Number) {
        const int valueA = a.value();
        const int valueB = b.value();
        return (valueA > valueB) - (valueA < valueB);
    }
    return 0;
}

/// Returns -1 if `a` is older than `b`, 0 if they are equal, and 1 if `a` is newer. Allocates no memory.
template <typename Unit, typename Classes>
int compare(std::basic_string_view<Unit> a, std::basic_string_view<Unit> b, const Classes &classes) {
    Parts<Unit, Classes> partsA(a, classes);
    Parts<Unit, Classes> partsB(b, classes);
    for (;;) {
        const bool hasA = partsA.next();
        const bool hasB = partsB.next();
        if (!hasA && !hasB)
            return 0;
        // The longer version is newer, unless its additional parts begin with a word, which means a
        // pre-release.
        if (!hasB)
            return partsA.kind() == Kind::String ? -1 : 1;
        if (!hasA)
            return partsB.kind() == Kind::String ? 1 : -1;
        if (const int result = compareParts(partsA, partsB))
            return result;
    }
}

/// Compares two ASCII versions. Returns an empty optional if either contains other characters: their
/// classification depends on the Unicode library and its version.
[[nodiscard]] std::optional<int> compareAscii(std::string_view a, std::string_view b);

} // namespace tx::versions
