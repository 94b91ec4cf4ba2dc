// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// From a library of the sample's own, which is found by the sample's RUNPATH alone.
[[gnu::visibility("default")]] QString samplePart();
