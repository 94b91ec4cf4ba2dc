// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace tx {

/// The folder into which an update is downloaded and unpacked, and the paths in it. A value; creates nothing.
/// The names are those of src/posix/updatefoldernames.h. Thread: any.
class UpdateFolder {
public:
    /// The folder of the host's updates: "<bundle identifier>.TXUpdater" in the user's private temporary
    /// folder.
    [[nodiscard]] static UpdateFolder ofHost();
    /// The folder that contains the archive. Differs from ofHost() if a host downloads updates itself.
    [[nodiscard]] static UpdateFolder ofArchive(const QString &archivePath);

    /// Absolute, without "/" at the end.
    [[nodiscard]] QString path() const { return m_path; }
    /// The lock file beside the folder. A process that downloads into the folder or installs from it
    /// holds the lock.
    [[nodiscard]] QString lockPath() const;
    /// The path of the entry `name`, for example of an archive.
    [[nodiscard]] QString pathOf(const QString &name) const { return m_path + u'/' + name; }
    /// The copy of the installer tool, and the executable in it.
    [[nodiscard]] QString installerTool() const;
    [[nodiscard]] QString installerExecutable() const;
    /// The session in which the installer tool opens the application again.
    [[nodiscard]] QString environmentRecord() const;

    /// True for the name of the installer tool's copy, which does not come from an archive.
    [[nodiscard]] static bool isInstallerTool(const QString &name);

private:
    explicit UpdateFolder(QString path)
        : m_path(std::move(path)) {}

    QString m_path;
};

} // namespace tx
