// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tx {

/// Texts by name in UTF-8; a later text of the same name replaces the earlier one. Emptied, it keeps its
/// memory for the next item. Thread: a value.
class NamedTexts {
public:
    void clear() { m_size = 0; }
    /// Clears the string of this name and returns a reference to it, which is valid until the next call.
    std::string &replace(std::string_view name);
    /// Returns null if there is none.
    [[nodiscard]] const std::string *find(std::string_view name) const;
    [[nodiscard]] size_t size() const { return m_size; }
    [[nodiscard]] const std::string &nameAt(size_t i) const { return m_texts[i].first; }

private:
    std::vector<std::pair<std::string, std::string>> m_texts;
    size_t m_size = 0;
};

/// One item of an appcast, by qualified names as they are written.
struct AppcastItem {
    NamedTexts elements;  ///< trimmed strings of the child elements
    NamedTexts enclosure; ///< attributes, as they are
    bool hasEnclosure = false;

    void clear();
};

/// All attributes of an element but its namespace declarations, from the parser's list of names and values.
void attributesAsDictionary(const char *const *attributes, NamedTexts &dictionary);

} // namespace tx
