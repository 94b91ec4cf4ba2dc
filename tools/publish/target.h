// SPDX-License-Identifier: MIT
#pragma once

#include "publish/fetching.h"
#include "publish/progress.h"
#include "trust/fault.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

namespace tx::publishing {

/// A feed as it is at the target.
struct StoredFeed {
    std::optional<QByteArray> content; ///< absent: there is none
    /// A replacement that was interrupted is to be finished before anything else: the content was found under
    /// the name that it has meanwhile.
    bool isHalfReplaced = false;
};

/// Where published files are: a folder of files without folders in it. Nothing of what is there is changed
/// but by the names that are given. Faults: File, with what to do.
class Target {
public:
    virtual ~Target() = default;

    /// For messages.
    [[nodiscard]] virtual QString description() const = 0;
    /// Keeps other publishers of this machine out until the target goes, where that is possible.
    [[nodiscard]] virtual trust::Verdict occupy() = 0;
    /// Bytes of a file; absent when there is none.
    virtual trust::Outcome<std::optional<quint64>> sizeOf(const QString &name) = 0;
    /// What is in a file that is there: read from the target itself, not by GET.
    virtual trust::Outcome<FetchedFile> digestOf(const QString &name, Progress &progress) = 0;
    /// Copies a file that is there to a new local one.
    [[nodiscard]] virtual trust::Verdict get(const QString &name, const QString &localPath,
                                             Progress &progress) = 0;
    virtual trust::Outcome<StoredFeed> readFeed(const QString &name) = 0;
    /// Puts a copy of a local file there, in place of one of that name.
    [[nodiscard]] virtual trust::Verdict put(const QString &localPath, const QString &name,
                                             Progress &progress) = 0;
    /// Puts this content in place of the feed. Readers see the earlier or the new one; where the target
    /// cannot do that, they see none for a moment. After an interruption readFeed() finds one of the two.
    [[nodiscard]] virtual trust::Verdict replaceFeed(const QString &name, const QByteArray &content) = 0;
    /// Removes a file; one that is not there is no fault.
    [[nodiscard]] virtual trust::Verdict remove(const QString &name) = 0;
};

/// `place`: "remote:path" (also ":backend,options:path") for a remote of rclone, which is run as a program;
/// else a folder, which must be there. A name with a colon that is a folder is written "./name:".
std::unique_ptr<Target> makeTarget(const QString &place);

/// True for a place that rclone takes to be a remote.
[[nodiscard]] bool isRemote(const QString &place);

std::unique_ptr<Target> makeFolderTarget(const QString &folder);
std::unique_ptr<Target> makeRcloneTarget(const QString &remote);

/// The name of a file that is not complete, or not in its place yet.
[[nodiscard]] QString temporaryName(const QString &name);

} // namespace tx::publishing
