// SPDX-License-Identifier: MIT
#pragma once

/// Marks a definition that the library of the user interface takes from the library below it. It is no part
/// of the interface for hosts: both libraries come from one build.
#define TX_SHARED __attribute__((visibility("default")))
