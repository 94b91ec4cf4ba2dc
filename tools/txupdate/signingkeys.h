// SPDX-License-Identifier: MIT
#pragma once

#include "trust/appinfo.h"
#include "trust/keyfiles.h"
#include "txupdate/trustcommands.h"

#include <vector>

namespace tx::cli {

/// Opens the secret keys of these names. Faults: Keys, Passphrase, File.
trust::Outcome<std::vector<trust::SecretKey>> openKeys(const QStringList &names,
                                                       const PassphraseOptions &passphrase);

/// Makes the two key pairs of `keygen` and prints instructions for them. Returns the key for daily use; the
/// other one is the spare. Faults: Passphrase, File.
trust::Outcome<trust::SecretKey> makeKeys(const KeygenOptions &options);

/// Returns the application that `signedFor` describes: from its Info.plist, or only its identifier and build.
/// Fault: Keys, if the bundle is not an application or has no keys.
trust::Outcome<trust::AppInfo> applicationOf(const SignedFor &signedFor);
/// Returns the installed application that verifies signatures. Fault: as above.
trust::Outcome<trust::AppInfo> verifierOf(const QString &bundle);

/// Complains; the exit status of a command that did not work.
int refuse(const trust::Fault &fault);

[[nodiscard]] QString toText(const std::string &text);

} // namespace tx::cli
