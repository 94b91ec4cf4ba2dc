// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// Returns freed memory to the system. Call this after a large window or document has been destroyed. Takes a
/// few milliseconds. Thread: any.
void returnFreedMemory();

} // namespace tx
