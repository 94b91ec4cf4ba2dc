// SPDX-License-Identifier: MIT
#pragma once

#include "trust/fault.h"

/// The names by which the commands that sign, verify and publish report faults, as src/trust does.
namespace tx::cli {

using trust::Fault;
using trust::FaultKind;
using trust::Outcome;
using trust::Verdict;

} // namespace tx::cli
