// SPDX-License-Identifier: MIT
#pragma once

#include "publish/faults.h"
#include "publish/fetching.h"
#include "publish/progress.h"

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

namespace tx::publishing {

/// A feed as it is stored at the target.
struct StoredFeed {
    std::optional<QByteArray> content; ///< absent if there is no feed
    /// An interrupted replacement must be completed first: the content was found under the temporary name.
    bool isHalfReplaced = false;
};

/// The place for published files: a folder without subfolders. Only the files named in calls are changed.
/// Faults: File, with advice.
class Target {
public:
    virtual ~Target() = default;

    /// A description for messages.
    [[nodiscard]] virtual QString description() const = 0;
    /// Locks out other publishers on this machine until the target is destroyed, if the target can do that.
    [[nodiscard]] virtual Verdict occupy() = 0;
    /// Returns the size of a file in bytes; absent if the file does not exist.
    virtual Outcome<std::optional<quint64>> sizeOf(const QString &name) = 0;
    /// Returns the size and digest of an existing file. Reads it from the target itself, not by GET.
    virtual Outcome<FetchedFile> digestOf(const QString &name, Progress &progress) = 0;
    /// Copies a file that is there to a new local one.
    [[nodiscard]] virtual Verdict get(const QString &name, const QString &localPath, Progress &progress) = 0;
    virtual Outcome<StoredFeed> readFeed(const QString &name) = 0;
    /// Copies a local file to the target. Replaces a file of the same name.
    [[nodiscard]] virtual Verdict put(const QString &localPath, const QString &name, Progress &progress) = 0;
    /// Replaces the feed with `content`. Readers see either the old or the new feed; if the target cannot
    /// replace files atomically, there is no feed for a moment. After an interruption readFeed() finds one of
    /// the two.
    [[nodiscard]] virtual Verdict replaceFeed(const QString &name, const QByteArray &content) = 0;
    /// Removes a file. A missing file is not a fault.
    [[nodiscard]] virtual Verdict remove(const QString &name) = 0;
};

/// Creates the target for `place`: an rclone remote such as "remote:path" or ":backend,options:path", for
/// which the program rclone is run, or an existing folder. Write "./name:" for a folder whose name contains a
/// colon.
std::unique_ptr<Target> makeTarget(const QString &place);

/// True if rclone would interpret the place as a remote.
[[nodiscard]] bool isRemote(const QString &place);

std::unique_ptr<Target> makeFolderTarget(const QString &folder);
std::unique_ptr<Target> makeRcloneTarget(const QString &remote);

/// The name of a file during its upload, until it is renamed.
[[nodiscard]] QString temporaryName(const QString &name);

} // namespace tx::publishing
