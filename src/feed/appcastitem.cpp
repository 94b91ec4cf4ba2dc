// SPDX-License-Identifier: MIT
#include "feed/appcastitem.h"

namespace tx {

std::string &NamedTexts::replace(std::string_view name) {
    size_t i = 0;
    while (i < m_size && m_texts[i].first != name)
        ++i;
    if (i == m_texts.size())
        m_texts.emplace_back();
    if (i == m_size) {
        m_texts[i].first = name;
        ++m_size;
    }
    m_texts[i].second.clear();
    return m_texts[i].second;
}

const std::string *NamedTexts::find(std::string_view name) const {
    for (size_t i = 0; i < m_size; ++i) {
        if (m_texts[i].first == name)
            return &m_texts[i].second;
    }
    return nullptr;
}

void AppcastItem::clear() {
    elements.clear();
    enclosure.clear();
    hasEnclosure = false;
}

void attributesAsDictionary(const char *const *attributes, NamedTexts &dictionary) {
    dictionary.clear();
    for (; *attributes; attributes += 2) {
        const std::string_view name = attributes[0];
        const bool declaresNamespace = name == "xmlns" || name.starts_with("xmlns:");
        if (!declaresNamespace)
            dictionary.replace(name) = attributes[1];
    }
}

} // namespace tx
