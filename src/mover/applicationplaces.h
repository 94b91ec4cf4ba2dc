// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// The application's current folder and the folder where it should be. Thread: main; folders are determined
/// once.
class ApplicationPlaces {
public:
    /// `bundlePath`: the application's own.
    explicit ApplicationPlaces(const QString &bundlePath);

    [[nodiscard]] QString bundlePath() const { return m_bundlePath; }
    [[nodiscard]] QString parentDirectory() const;

    /// Returns the user's Applications folder if it contains an application. Also returns it if it exists and
    /// the machine's Applications folder needs root's rights that this application cannot get. Otherwise
    /// returns the machine's folder, or null if that does not exist.
    [[nodiscard]] QString preferredInstallLocation(bool *isUserFolder = nullptr) const;
    /// The preferred folder and the bundle's name; null without a folder.
    [[nodiscard]] QString destinationPath() const;
    /// Whether writing to the preferred folder needs root's rights.
    [[nodiscard]] bool needsAuthorization() const;
    /// Whether the user can be asked for these rights.
    [[nodiscard]] bool canGetAuthorization() const;

    [[nodiscard]] bool isInApplicationsFolder() const;
    [[nodiscard]] bool isInDownloadsFolder() const;
    [[nodiscard]] bool isInDesktopFolder() const;
    [[nodiscard]] bool isInDiskImage() const { return !diskImageVolumePath().isNull(); }
    /// The mount point of the disk image that contains the application: a removable, read-only volume.
    [[nodiscard]] QString diskImageVolumePath() const;
    /// The image file behind a mounted volume; null when it is not known. Blocks while `hdiutil` runs.
    [[nodiscard]] static QString diskImageFileForVolumePath(const QString &volumePath);

private:
    struct Preferred {
        QString folder;
        bool isUserFolder;
    };
    const Preferred &preferred() const;

    QString m_bundlePath;
    mutable std::optional<Preferred> m_preferred;
    mutable std::optional<bool> m_canGetAuthorization;
};

} // namespace tx
