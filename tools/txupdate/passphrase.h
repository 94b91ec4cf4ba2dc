// SPDX-License-Identifier: MIT
#pragma once

#include "trust/secret.h"
#include "txupdate/trustcommands.h"

namespace tx::cli {

/// The passphrase of one key. `what`: of which, for the terminal's question. `isNew`: asks twice there.
/// Faults: Passphrase when there is none or the two differ, File.
trust::Outcome<trust::Secret> readPassphrase(const PassphraseOptions &options, const QString &what,
                                             bool isNew);

} // namespace tx::cli
