// SPDX-License-Identifier: MIT
#pragma once

#include "publish/application.h"
#include "publish/progress.h"
#include "trust/digest.h"

#include <QString>

#include <optional>

namespace tx::publishing {

enum class ArchiveType { Zip, Tgz, Tzst };

/// "zip", "tgz" or "tzst", and back.
[[nodiscard]] QString suffixOf(ArchiveType type);
[[nodiscard]] std::optional<ArchiveType> typeOfSuffix(const QString &suffix);

/// A packed application.
struct PackedArchive {
    QString path; ///< where it is now
    QString name; ///< that it is published under: "MyApp-1043.tgz"
    ArchiveType type = ArchiveType::Tgz;
    quint64 size = 0; ///< bytes
    trust::Digest digest{};
};

/// Largest sizes in bytes that the installed applications take.
struct PublishedLimits {
    qint64 archive = 0;
    qint64 unpacked = 0;
};

/// Packs a bundle into a new file in `folder`, with the bundle at the top. The same bundle gives the same
/// bytes, on every machine with the same compression libraries: names are sorted, everything belongs to user
/// and group 0, modes are 0755 or 0644, times are whole seconds of the bundle's files and not after
/// `newest` (seconds since 1970, when there is one), nothing is said about the machine.
///
/// While it runs, the time zone of the process is UTC, as zip archives keep local times: no other thread may
/// read the environment meanwhile. Faults: File; Input, for an archive over a limit.
trust::Outcome<PackedArchive> packBundle(const Application &application,
                                         const std::vector<BundleEntry> &entries, ArchiveType type,
                                         const QString &folder, std::optional<qint64> newest,
                                         const PublishedLimits &limits, Progress &progress);

} // namespace tx::publishing
