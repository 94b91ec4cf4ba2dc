// SPDX-License-Identifier: MIT
#include "base/binarypropertylist.h"

#include "posix/binaryobjects.h"

#include <algorithm>

namespace tx {

bool holdsNulCharacter(QByteArrayView binaryPropertyList) {
    const BinaryObjects objects(
        std::string_view(binaryPropertyList.data(), static_cast<size_t>(binaryPropertyList.size())));
    constexpr unsigned ascii = 0x5;
    constexpr unsigned utf16 = 0x6;
    for (uint64_t i = 0; i < objects.count(); ++i) {
        const auto text = objects.at(i);
        if (!text || (text->kind != ascii && text->kind != utf16) || text->begin > objects.size())
            continue;
        // As much of it as there is: the other reader may see more of a damaged document than this one.
        const uint64_t unit = text->kind == utf16 ? 2 : 1;
        const uint64_t units = std::min(text->length, (objects.size() - text->begin) / unit);
        const std::string_view bytes = objects.document().substr(text->begin, units * unit);
        for (size_t at = 0; at < bytes.size(); at += unit) {
            if (bytes[at] == '\0' && bytes[at + unit - 1] == '\0')
                return true;
        }
    }
    return false;
}

} // namespace tx
