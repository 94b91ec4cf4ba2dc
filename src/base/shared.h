// SPDX-License-Identifier: MIT
#pragma once

/// Exports a function or class of the core library for the user-interface library. It does not belong to the
/// public interface: both libraries come from the same build.
#define TX_SHARED __attribute__((visibility("default")))
