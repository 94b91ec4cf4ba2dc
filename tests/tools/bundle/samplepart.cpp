// SPDX-License-Identifier: MIT
#include "tests/tools/bundle/samplepart.h"

QString samplePart() { return QStringLiteral("part"); }
