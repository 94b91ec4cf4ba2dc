// SPDX-License-Identifier: MIT
#pragma once

#include "trust/secret.h"
#include "txupdate/trustcommands.h"

namespace tx::cli {

/// Reads the passphrase of one key. `what` names the key in the question on the terminal. `isNew` asks twice
/// there. Faults: Passphrase, if there is none or the two differ; File.
trust::Outcome<trust::Secret> readPassphrase(const PassphraseOptions &options, const QString &what,
                                             bool isNew);

} // namespace tx::cli
