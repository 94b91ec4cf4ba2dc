// SPDX-License-Identifier: MIT
#include "os/memory.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace tx {

void returnFreedMemory() {
#ifdef __GLIBC__
    (void)malloc_trim(0);
#endif
}

} // namespace tx
