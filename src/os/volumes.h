// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>

namespace tx {

/// The mounted volume that contains a path.
struct VolumeInfo {
    QString rootPath; ///< its mount point
    QString device;   ///< such as /dev/sda1
    bool isReadOnly = false;
    bool isRemovable = false; ///< its device says so, or it is a loop device
    bool isDiskImage = false; ///< a loop device that is mounted read-only
};

/// Absent when the volume cannot be asked, such as for a missing path. Thread: any.
[[nodiscard]] std::optional<VolumeInfo> volumeInfo(const QString &path);
/// As above, but from the file system itself: for a chroot or container whose mount table has no entry for
/// the path.
[[nodiscard]] std::optional<VolumeInfo> volumeByFileSystem(const QString &path);

/// What a device node says of itself below `sysRoot` ("/sys"): partitions ask their disk.
[[nodiscard]] bool deviceIsRemovable(const QString &device, const QString &sysRoot);
[[nodiscard]] bool deviceIsLoop(const QString &device);

/// The mount flags' read-only bit; false when they cannot be had.
[[nodiscard]] bool mountFlagsAreReadOnly(const QString &path);

} // namespace tx
