// SPDX-License-Identifier: MIT
// Read before every file of an old release that is built on a system that came after it.
#pragma once
#if __has_include(<plist/plist.h>)
#include <plist/plist.h>
/// Later libplist takes one argument more. Where there is the old function, this cannot be instantiated.
template <typename Root>
auto plist_from_memory(const char *bytes, unsigned int length, Root *root)
    -> decltype(plist_from_memory(bytes, length, root, nullptr)) {
    return plist_from_memory(bytes, length, root, nullptr);
}
#endif
