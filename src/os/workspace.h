// SPDX-License-Identifier: MIT
#pragma once

#include "base/result.h"

#include <QList>
#include <QUrl>

namespace tx {

/// The desktop around the application. Thread: any, unless said.
class Workspace {
public:
    virtual ~Workspace() = default;
    /// Opens a URL in the user's preferred program. For a URL from a feed or a page call openAddress()
    /// (src/os/openaddress.h) instead, which checks that the URL may be opened.
    virtual TXError openUrl(const QUrl &url) = 0;
    /// Opens a file or folder; an application bundle is started, unless it runs already.
    virtual TXError openFile(const QString &path) = 0;
    /// Shows the entry, selected, in the file manager.
    virtual TXError reveal(const QString &path) = 0;
    /// Moves the entry at `path` to the desktop's Trash; never deletes. The new path. In the Trash it is
    /// named after `original`, in the same folder, to which it can be restored. An error whose user info has
    /// "trashed" says where a complete copy is, of which the original could not all be removed.
    virtual Result<QString> moveToTrash(const QString &path, const QString &original) = 0;
    /// Processes of this user that run the executable at this path.
    [[nodiscard]] virtual QList<qint64> runningApplications(const QString &executablePath) const = 0;
    /// The executables of all processes of this user that can be examined.
    [[nodiscard]] virtual QStringList runningExecutables() const = 0;
    /// Asks this application to quit in the usual way; it may refuse. Thread: main.
    virtual void terminate() = 0;
    /// Returns whether this application cannot show windows because it has no graphical session.
    [[nodiscard]] virtual bool isBackgroundApplication() const = 0;
};

Workspace &nativeWorkspace();

} // namespace tx
