// SPDX-License-Identifier: MIT
#pragma once

#include <plist/plist.h>

#include <string>

namespace tx::report {

/// The list as XML text; it is freed.
[[nodiscard]] inline std::string takeXml(plist_t root) {
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    std::string result(xml ? xml : "", xml ? length : 0);
    plist_to_xml_free(xml);
    plist_free(root);
    return result;
}

} // namespace tx::report
