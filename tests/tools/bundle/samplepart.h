// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// A function in the sample's own library, which only the sample's RUNPATH finds.
[[gnu::visibility("default")]] QString samplePart();
