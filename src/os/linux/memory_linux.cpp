// SPDX-License-Identifier: MIT
#include "os/memory.h"

#include "base/shared.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace tx {

TX_SHARED void returnFreedMemory() {
#ifdef __GLIBC__
    (void)malloc_trim(0);
#endif
}

} // namespace tx
