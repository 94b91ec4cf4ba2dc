// SPDX-License-Identifier: MIT
#pragma once

namespace tx {

/// Gives memory that has been freed back to the system: after a window or a long
/// document has gone that took much of it. Takes a
/// few milliseconds. Thread: any.
void returnFreedMemory();

} // namespace tx
