// SPDX-License-Identifier: MIT
#include "posix/systemreport.h"

#include <utility>

namespace tx::machine {

void Item::add(const std::string &key, const std::string &text) {
    if (!text.empty())
        members.emplace_back(key, text);
}

void Item::add(const std::string &key, std::vector<Item> items) {
    if (!items.empty())
        members.emplace_back(key, std::move(items));
}

std::vector<Section> sections(const Source &source) { return {hardware(source), displays(source)}; }

} // namespace tx::machine
