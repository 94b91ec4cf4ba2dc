// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace tx::report {

/// Returns a JSON string with quotes.
[[nodiscard]] std::string jsonText(std::string_view text);

} // namespace tx::report
