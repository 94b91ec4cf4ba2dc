// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <functional>

namespace tx {

/// Finds out whether a package of the system owns the running application, which only the package manager may
/// change then. `done` gets null when none does; else an error with the description `failure`, also when that
/// cannot be told. Thread: main, on which `done` is called later; not when the application ends first.
void checkPackageOwner(const QString &failure, std::function<void(const TXError &refusal)> done);

} // namespace tx
