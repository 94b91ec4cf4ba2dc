// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

/// The names by which this folder reports faults, which it does in the same way as src/trust.
namespace tx::publishing {

using trust::Fault;
using trust::FaultKind;
using trust::Outcome;
using trust::Verdict;

} // namespace tx::publishing
