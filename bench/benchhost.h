// SPDX-License-Identifier: MIT
#pragma once

#include "os/mainbundle.h"

#include <QString>

/// Acts for the application whose bundle TARVIX_BENCH_HOST names.
inline void becomeBenchHost() { tx::setMainBundle(TXBundle(qEnvironmentVariable("TARVIX_BENCH_HOST"))); }
