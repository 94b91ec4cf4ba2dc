// SPDX-License-Identifier: MIT
#pragma once

/// Marks what a host application may use; everything else in the library is hidden.
#define TX_EXPORT __attribute__((visibility("default")))
