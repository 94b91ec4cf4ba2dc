// SPDX-License-Identifier: MIT
#pragma once

#include "model/updatebuilder.h"
#include "os/filesystem.h"
#include "trust/verifiedarchive.h"

// What an update has once it is more than a text in a feed. A feed may hold a hundred thousand updates of
// which one is used.
struct TXUpdate::Private : tx::UpdateFields {
    bool isDownloaded = false;
    bool isDownloading = false;
    bool isInstalling = false;
    bool isInstalled = false;
    double downloadProgress = 0;
    quint64 downloadSize = 0;
    QString downloadPath;
    std::shared_ptr<tx::UpdateDownload> download;
    /// While it installs, for a host with keys: what was unpacked.
    std::shared_ptr<const tx::trust::VerifiedArchive> verified;
    CompletionHandler installErrorHandler;
    std::shared_ptr<void>
        quitPermission; ///< from the answer that the application may end until the process does
    std::shared_ptr<tx::FileLock> folderLock; ///< while it downloads or installs; unpacking holds it as well
};

namespace tx {

/// Stores a value and announces the change when it is one.
template <typename T, typename Signal>
void assign(TXUpdate &update, T &member, const T &value, Signal signal) {
    if (member == value)
        return;
    member = value;
    Q_EMIT(update.*signal)();
}

} // namespace tx
