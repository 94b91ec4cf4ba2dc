// SPDX-License-Identifier: MIT
#pragma once

#include "model/hosttrust.h"
#include "model/updatestate.h"

#include <TarvixUpdate/TXUpdate.h>

namespace tx {

/// The private steps of TXUpdate::installWithErrorHandler. Thread: main.
class UpdateInstallation {
public:
    /// Goes on unless the application is part of a package.
    static void install_checkOwner(TXUpdate &update);
    /// Unpacks the archive. For a host with keys, verifies it first.
    static void install_doUnarchive(TXUpdate &update);
    /// `application`: the unpacked application's path; null for an archive of unknown type.
    static void install_doInstall(TXUpdate &update, const QString &application);
    /// Ends the installation; the archive stays, so that the user can try again. A null error: the new
    /// application is in the Downloads folder.
    static void install_failed(TXUpdate &update, const TXError &error);

private:
    static void unarchive(TXUpdate &update);
    /// Ends the installation with `error`, and removes the files that the host's keys do not admit.
    static void endUnverified(TXUpdate &update, const TXError &error);
    static void verify(TXUpdate &update, const std::shared_ptr<const ArchiveTrust> &trusted);
    /// Ends the installation with `error`, in `state`.
    static void endWithState(TXUpdate &update, const TXError &error, UpdateState state);
    /// Fails, and removes the archive and the application that came out of it: the update is to be downloaded
    /// again.
    static void discardDownload(TXUpdate &update, const QString &application, const TXError &why);
    /// Asks whether the application may quit, and starts the installer if so.
    static void askToQuit(TXUpdate &update, const QString &application);
    static void handOver(TXUpdate &update, const QString &application);
    static void moveIntoDownloads(TXUpdate &update, const QString &application);
};

} // namespace tx
