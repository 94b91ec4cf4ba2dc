// SPDX-License-Identifier: MIT
#pragma once

#include "model/itemcontent.h"
#include "model/updatebuilder.h"
#include "os/filesystem.h"
#include "trust/verifiedarchive.h"

namespace tx {

class UpdateDownload;

/// What an update has once it is more than a text in a feed. A feed may hold a hundred thousand updates of
/// which one is used.
struct UpdateState : UpdateFields {
    bool isDownloaded = false;
    bool isDownloading = false;
    bool isInstalling = false;
    bool isInstalled = false;
    double downloadProgress = 0;
    quint64 downloadSize = 0;
    QString downloadPath;
    std::shared_ptr<UpdateDownload> download;
    /// During the installation of a host with keys: the archive that was unpacked.
    std::shared_ptr<const trust::VerifiedArchive> verified;
    TXUpdate::CompletionHandler installErrorHandler;
    std::shared_ptr<void>
        quitPermission; ///< from the answer that the application may end until the process does
    std::shared_ptr<FileLock> folderLock; ///< while it downloads or installs; unpacking holds it as well
};

/// The state of an update. Created on first use.
[[nodiscard]] UpdateState &stateOf(const TXUpdate &update);

/// Stores a value and announces the change when it is one.
template <typename T, typename Signal>
void assign(TXUpdate &update, T &member, const T &value, Signal signal) {
    if (member == value)
        return;
    member = value;
    Q_EMIT(update.*signal)();
}

} // namespace tx

struct TXUpdatePrivate : tx::ItemContent<tx::UpdateState> {
    using ItemContent::ItemContent;

    [[nodiscard]] static TXUpdatePrivate &of(const TXUpdate &update) { return *update.d; }
    /// See tx::UpdateBuilder.
    static TXUpdatePtr make(tx::PackedEntry entry);
    /// See tx::stateOf().
    tx::UpdateState &state();

private:
    struct WithItem;
};
