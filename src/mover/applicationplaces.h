// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// Where an application stands, and where it should. Thread: main; folders are chosen once.
class ApplicationPlaces {
public:
    /// `bundlePath`: the application's own.
    explicit ApplicationPlaces(const QString &bundlePath);

    [[nodiscard]] QString bundlePath() const { return m_bundlePath; }
    [[nodiscard]] QString parentDirectory() const;

    /// The user's Applications folder when it holds an application, or when it is there and the one of this
    /// machine takes rights that this application cannot get; else that one, or null when it is not there.
    [[nodiscard]] QString preferredInstallLocation(bool *isUserFolder = nullptr) const;
    /// The preferred folder and the bundle's name; null without a folder.
    [[nodiscard]] QString destinationPath() const;
    /// Whether the preferred folder takes an administrator's rights.
    [[nodiscard]] bool needsAuthorization() const;
    /// Whether the user can be asked for these rights.
    [[nodiscard]] bool canGetAuthorization() const;

    [[nodiscard]] bool isInApplicationsFolder() const;
    [[nodiscard]] bool isInDownloadsFolder() const;
    [[nodiscard]] bool isInDesktopFolder() const;
    [[nodiscard]] bool isInDiskImage() const { return !diskImageVolumePath().isNull(); }
    /// Where the image is mounted that holds the application: a removable volume that cannot be written.
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
