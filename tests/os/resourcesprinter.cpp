// SPDX-License-Identifier: MIT
// Prints where the framework that this program holds finds its resources.
#include "os/frameworkresources.h"

#include <cstdio>

int main() { return std::fputs(tx::frameworkResourcesPath().toUtf8().constData(), stdout) < 0; }
