// SPDX-License-Identifier: MIT
#pragma once

#include "publish/application.h"
#include "publish/faults.h"
#include "publish/progress.h"
#include "trust/digest.h"

#include <QString>

#include <optional>

namespace tx::publishing {

enum class ArchiveType { Zip, Tgz, Tzst };

/// Converts between a type and its suffix "zip", "tgz" or "tzst".
[[nodiscard]] QString suffixOf(ArchiveType type);
[[nodiscard]] std::optional<ArchiveType> typeOfSuffix(const QString &suffix);

/// A packed application.
struct PackedArchive {
    QString path; ///< its path on this machine
    QString name; ///< the file name for publishing, such as "MyApp-1043.tgz"
    ArchiveType type = ArchiveType::Tgz;
    quint64 size = 0; ///< bytes
    trust::Digest digest{};
};

/// The largest sizes in bytes that the installed applications accept.
struct PublishedLimits {
    qint64 archive = 0;
    qint64 unpacked = 0;
};

/// Packs a bundle into a new file in `folder`, with the bundle at the top. The archive is reproducible: the
/// same bundle gives the same bytes on every machine that has the same compression libraries. For that, names
/// are sorted, user and group are 0, modes are 0755 or 0644, times are those of the files in whole seconds
/// and at most `newest` (seconds since 1970, if given), and the archive contains no information about the
/// machine.
///
/// During the call the time zone of the process is UTC, because zip archives store local times. No other
/// thread may read the environment during that time. Faults: File; Input, for an archive over a limit.
Outcome<PackedArchive> packBundle(const Application &application, const std::vector<BundleEntry> &entries,
                                  ArchiveType type, const QString &folder, std::optional<qint64> newest,
                                  const PublishedLimits &limits, Progress &progress);

} // namespace tx::publishing
