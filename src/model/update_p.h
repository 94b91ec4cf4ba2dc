// SPDX-License-Identifier: MIT
#pragma once

#include "model/itemcontent.h"
#include "model/updatebuilder.h"
#include "model/updatestate.h"
#include "os/filesystem.h"
#include "trust/verifiedarchive.h"

namespace tx {

class UpdateDownload;

/// The data of an update that is more than an entry of a feed. A feed may contain a hundred thousand updates,
/// of which one is used.
struct UpdateDetails : UpdateFields {
    UpdateState state = UpdateState::Available; ///< changed with enterState() only
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

/// The details of an update. Created on first use.
[[nodiscard]] UpdateDetails &detailsOf(const TXUpdate &update);

/// Stores a value and announces the change when it is one.
template <typename T, typename Signal>
void assign(TXUpdate &update, T &member, const T &value, Signal signal) {
    if (member == value)
        return;
    member = value;
    Q_EMIT(update.*signal)();
}

} // namespace tx

struct TXUpdatePrivate : tx::ItemContent<tx::UpdateDetails> {
    using ItemContent::ItemContent;

    [[nodiscard]] static TXUpdatePrivate &of(const TXUpdate &update) { return *update.d; }
    /// See tx::UpdateBuilder.
    static TXUpdatePtr make(tx::PackedEntry entry);
    /// See tx::detailsOf().
    tx::UpdateDetails &details();

private:
    struct WithItem;
};
