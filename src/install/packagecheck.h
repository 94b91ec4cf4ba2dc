// SPDX-License-Identifier: MIT
#pragma once

#include <TarvixUpdate/TXError.h>

#include <functional>

namespace tx {

/// Checks whether a package of the system owns the running application. If so, only the package manager may
/// change it. `done` gets a null error if no package owns it. Otherwise, and if that cannot be determined, it
/// gets an error with the description `failure`. Thread: main; `done` is called there later, unless the
/// application ends first.
void checkPackageOwner(const QString &failure, std::function<void(const TXError &refusal)> done);

} // namespace tx
