// SPDX-License-Identifier: MIT
#pragma once

#include "posix/systemreport.h"

#include <string>
#include <vector>

namespace tx::machine {

/// The sections as an XML property list, and for a person.
[[nodiscard]] std::string asPropertyList(const std::vector<Section> &sections);
[[nodiscard]] std::string asText(const std::vector<Section> &sections);

} // namespace tx::machine
