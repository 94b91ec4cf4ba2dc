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

/// Makes the two pairs of `keygen`, and prints what to do with them. The key that is not put away. Faults:
/// Passphrase, File.
trust::Outcome<trust::SecretKey> makeKeys(const KeygenOptions &options);

/// For which application `signedFor` is: what its Info.plist says, or its identifier and build alone. Fault:
/// Keys, when the bundle is none, or has no keys.
trust::Outcome<trust::AppInfo> applicationOf(const SignedFor &signedFor);
/// The same for the installed application that verifies.
trust::Outcome<trust::AppInfo> verifierOf(const QString &bundle);

/// Complains; the exit status of a command that did not work.
int refuse(const trust::Fault &fault);

[[nodiscard]] QString toText(const std::string &text);

} // namespace tx::cli
